// Format updaters: what lifts a file of an older format version to the current form.
#include <algorithm>
#include <mutex>
#include <vector>

#include "core/strtools.h"
#include "datamodel/dmxio.h"

namespace
{
// Previous-generation vertex stream names and the names that replaced them.
struct VertexNameLift_t
{
	const char *oldName;
	const char *newName;
};
const VertexNameLift_t s_VertexNameLifts[] = {
	{ "positions", "position$0" },
	{ "normals", "normal$0" },
	{ "tangents", "tangent$0" },
	{ "textureCoordinates", "texcoord$0" },
	{ "colors", "color$0" },
	{ "jointWeights", "blendweights$0" },
	{ "jointIndices", "blendindices$0" },
	{ "balance", "balance$0" },
	{ "speed", "speed$0" },
	{ "wrinkle", "wrinkle$0" },
	{ "weight", "weight$0" },
};

// The current name of a previous-generation stream or index attribute name; empty when the name
// is not one. A name that equals an old name (without case) takes the new name; one that holds
// an old name and also "Indices" takes the new name with "Indices" after it. Names with a "$"
// are current already.
CUtlString LiftedVertexName(const CUtlString &name)
{
	if (name.find('$') != CUtlString::npos)
		return {};
	for (const VertexNameLift_t &lift : s_VertexNameLifts)
		if (V_StrEqualNoCase(name, lift.oldName))
			return lift.newName;
	if (!V_stristr(name.c_str(), "Indices"))
		return {};
	for (const VertexNameLift_t &lift : s_VertexNameLifts)
		if (V_stristr(name.c_str(), lift.oldName))
			return CUtlString(lift.newName) + "Indices";
	return {};
}

bool LiftVertexNames(CDmxDocument &doc, int, CUtlString *)
{
	DmxLiftVertexAttributeNames(doc);
	return true;
}

struct CUpdaterRegistry
{
	std::mutex m_Mutex;
	std::vector<DmxFormatUpdater_t> m_Updaters;

	CUpdaterRegistry()
	{
		m_Updaters.push_back({ "model", 2, "previous-generation vertex stream names", LiftVertexNames });
		m_Updaters.push_back({ "dmx", 2, "previous-generation vertex stream names", LiftVertexNames });
	}
};

CUpdaterRegistry &Updaters()
{
	static CUpdaterRegistry s_Registry;
	return s_Registry;
}
} // namespace

int DmxLiftVertexAttributeNames(CDmxDocument &doc)
{
	int renamed = 0;
	for (int i = 0; i < doc.ElementCount(); ++i)
	{
		CDmElement *pElement = doc.GetElement(i);
		if (pElement->GetTypeName() != "DmeVertexData")
			continue;
		for (int a = 1; a < pElement->AttributeCount(); ++a)
		{
			CDmAttribute *pAttribute = pElement->GetAttribute(a);
			const CUtlString lifted = LiftedVertexName(pAttribute->GetName());
			if (lifted.empty())
				continue;
			// A file that has both names keeps the current one; the old stays as it is.
			const CUtlString oldName = pAttribute->GetName();
			if (pElement->RenameAttribute(oldName, lifted))
				++renamed;
		}
		if (std::vector<CUtlString> *pFormat = pElement->GetArrayForEdit<CUtlString>("vertexFormat"))
		{
			for (CUtlString &entry : *pFormat)
			{
				if (entry.find('$') != CUtlString::npos)
					break;
				const CUtlString lifted = LiftedVertexName(entry);
				if (!lifted.empty())
					entry = lifted;
			}
		}
	}
	return renamed;
}

void DmxRegisterFormatUpdater(const DmxFormatUpdater_t &updater)
{
	if (!updater.formatName || !updater.pUpdate)
		return;
	CUpdaterRegistry &registry = Updaters();
	std::lock_guard<std::mutex> lock(registry.m_Mutex);
	registry.m_Updaters.push_back(updater);
}

int DmxCurrentFormatVersion(std::string_view formatName)
{
	CUpdaterRegistry &registry = Updaters();
	std::lock_guard<std::mutex> lock(registry.m_Mutex);
	int version = 1;
	for (const DmxFormatUpdater_t &updater : registry.m_Updaters)
		if (formatName == updater.formatName)
			version = std::max(version, updater.toVersion);
	return version;
}

bool DmxUpdateFormat(CDmxDocument &doc, CUtlString *pError)
{
	std::vector<DmxFormatUpdater_t> steps;
	{
		CUpdaterRegistry &registry = Updaters();
		std::lock_guard<std::mutex> lock(registry.m_Mutex);
		for (const DmxFormatUpdater_t &updater : registry.m_Updaters)
			if (doc.GetFormatName() == updater.formatName && updater.toVersion > doc.GetFormatVersion())
				steps.push_back(updater);
	}
	std::stable_sort(steps.begin(), steps.end(), [](const DmxFormatUpdater_t &a, const DmxFormatUpdater_t &b) { return a.toVersion < b.toVersion; });
	for (const DmxFormatUpdater_t &step : steps)
	{
		CUtlString error;
		if (!step.pUpdate(doc, doc.GetFormatVersion(), &error))
		{
			if (pError)
				*pError = V_Format("updating format %s from version %d to %d (%s) failed: %s", doc.GetFormatName().c_str(), doc.GetFormatVersion(),
					step.toVersion, step.description ? step.description : "", error.c_str());
			return false;
		}
		doc.SetFormat(doc.GetFormatName(), step.toVersion);
	}
	return true;
}
