// Models: a model document (".zmdl", KV3 "modeldoc32") to ".zmdl_c".
//
// The document's nodes, in the order of the file:
// - RenderMeshFile: a mesh source (FBX or DMX) that becomes one mesh, named by the node;
// - LODGroup i: the meshes it names get bit i of their LOD mask (a mesh in no group is in every
//   LOD; no groups at all make one LOD); its switch_threshold;
// - DefaultMaterialGroup: the material of every polygon (use_global_default with
//   global_default_material), otherwise each polygon's material name from the source taken as a
//   path ("materials/" and ".zmat" added where missing); its remaps apply to the meshes;
//   MaterialGroup: a skin with remaps; every material used is compiled once per run;
// - BodyGroup / BodyGroupChoice: mesh names to mesh indices;
// - Attachment, HitboxSet / Hitbox, HitboxSet_Auto (a box per skinned bone), PoseParam,
//   WeightList (a bone not listed takes its parent's weight);
// - AnimFile, AnimBindPose, 1DBlend: the sequences, with AnimSubtract, ExtractMotion, AnimEvent,
//   ActivityModifier and AnimAddLayer below them;
// - ZSNAPFile: particle snapshots compiled beside the model.
// The skeleton is the union of the joints of the mesh sources, then of the animation sources,
// parents before children.
#include <algorithm>
#include <atomic>
#include <cmath>
#include <thread>
#include <unordered_map>

#include "core/fileio.h"
#include "core/kv3text.h"
#include "core/strtools.h"
#include "meshio/assimp/assimpscene.h"
#include "modeldoc/kv3linelocator.h"
#include "modeldoc/modeldoc.h"
#include "resourcecompiler/compiler_internal.h"
#include "resourcecompiler/modelbuild.h"

namespace
{
CUtlString LowerCase(std::string_view text)
{
	CUtlString out(text);
	for (char &c : out)
		c = V_tolower(c);
	return out;
}

struct ModelSource_t
{
	CUtlString m_Relative;
	const CModelDocNode *m_pFirstUser = nullptr; // the node that names it first
	SourceScene_t m_Scene;
	bool m_bLoaded = false;
	CUtlString m_Error;
	std::vector<int> m_JointToBone;
};

class CModelCompile
{
public:
	CModelCompile(CResourceCompiler &rc, const CompileRoots_t &roots, const CUtlString &relative)
		: m_RC(rc), m_Roots(roots), m_Relative(relative)
	{
	}

	bool Run(const CUtlString &output);

private:
	void Error(const CModelDocNode *pNode, const char *pszFormat, ...) FMTFUNCTION(3, 4);
	void Warning(const CModelDocNode *pNode, const char *pszFormat, ...) FMTFUNCTION(3, 4);
	int LineOf(const CModelDocNode *pNode) const;
	void MapLines(std::string_view text);
	void MapNodeLines(const KeyValues3 *pTable, const CModelDocNode *pNode, const CKV3LineLocator &locator);
	std::vector<CModelDocNode *> ListChildren(const char *pszListClass) const;

	int AddSource(const CModelDocNode *pNode, const char *pszAttribute);
	void LoadSources();
	bool BuildSkeleton();
	// bNamedBySource: the path comes from a mesh source's own material name, not from the document.
	int32 AddMaterial(const CUtlString &path, const CModelDocNode *pNode, bool bNamedBySource = false);
	bool MaterialPathOfName(const CUtlString &name, CUtlString &path, const CModelDocNode *pNode);
	void BuildMeshes();
	void BuildLods();
	void BuildBodyGroups();
	void BuildMaterialGroups();
	void BuildAttachments();
	void BuildHitboxes();
	void BuildPoseParameters();
	void BuildWeightLists();
	void BuildSequences();
	void CompileSnapshots();
	void CompileMaterials();
	int FindMesh(std::string_view name) const;
	int FindBoneOrFail(const CModelDocNode *pNode, const char *pszBone, const char *pszWhat);

	CResourceCompiler &m_RC;
	const CompileRoots_t &m_Roots;
	const CUtlString &m_Relative;
	CModelDoc m_Doc;
	std::unordered_map<const CModelDocNode *, int> m_Lines;
	bool m_bFailed = false;

	std::vector<ModelSource_t> m_Sources;
	std::unordered_map<CUtlString, int> m_SourceOfPath;
	std::vector<CModelDocNode *> m_MeshNodes;
	std::vector<int> m_MeshSource; // per mesh node
	double m_flScale = 1.0;
	CModelSkeleton m_Skeleton;

	// Materials by source path (".zmat"); the model stores the compiled names.
	std::vector<CUtlString> m_MaterialSources;
	std::vector<const CModelDocNode *> m_MaterialUsers;
	std::vector<bool> m_MaterialNamedBySource; // only named by a mesh source's material, never by the document
	std::unordered_map<CUtlString, int32> m_MaterialOfPath;
	CUtlString m_GlobalDefault;
	const CModelDocNode *m_pDefaultGroup = nullptr;

	CCompiledModel m_Model;
};

void CModelCompile::Error(const CModelDocNode *pNode, const char *pszFormat, ...)
{
	va_list args;
	va_start(args, pszFormat);
	const CUtlString text = V_FormatV(pszFormat, args);
	va_end(args);
	m_RC.Log().Error(m_Relative, LineOf(pNode), "%s", text.c_str());
	m_bFailed = true;
}

void CModelCompile::Warning(const CModelDocNode *pNode, const char *pszFormat, ...)
{
	va_list args;
	va_start(args, pszFormat);
	const CUtlString text = V_FormatV(pszFormat, args);
	va_end(args);
	m_RC.Log().Warning(m_Relative, LineOf(pNode), "%s", text.c_str());
}

int CModelCompile::LineOf(const CModelDocNode *pNode) const
{
	const auto it = m_Lines.find(pNode);
	return it == m_Lines.end() ? 0 : it->second;
}

// The document keeps no positions: the text is parsed once more and its node tables are paired
// with the document's nodes, which the loader made in the same order.
void CModelCompile::MapLines(std::string_view text)
{
	CKeyValues3Context context;
	if (!LoadKV3(context.Root(), nullptr, text, KV3_FORMAT_MODELDOC32, m_Relative.c_str()))
		return;
	CKV3LineLocator locator;
	locator.Build(text, context.Root());
	if (const KeyValues3 *pRoot = context.Root()->FindMember("rootNode"))
		MapNodeLines(pRoot, m_Doc.GetRootNode(), locator);
}

void CModelCompile::MapNodeLines(const KeyValues3 *pTable, const CModelDocNode *pNode, const CKV3LineLocator &locator)
{
	if (!pTable || !pTable->IsTable() || !pNode)
		return;
	m_Lines[pNode] = locator.TableLine(pTable);
	const KeyValues3 *pChildren = pTable->FindMember("children");
	if (!pChildren || !pChildren->IsArray() || (int)pChildren->GetArrayCount() != pNode->GetChildCount())
		return;
	for (int i = 0; i < pNode->GetChildCount(); ++i)
		MapNodeLines(pChildren->GetArrayElement((uint32)i), pNode->GetChild(i), locator);
}

std::vector<CModelDocNode *> CModelCompile::ListChildren(const char *pszListClass) const
{
	std::vector<CModelDocNode *> out;
	if (const CModelDocNode *pList = m_Doc.FindListNode(pszListClass))
	{
		for (int i = 0; i < pList->GetChildCount(); ++i)
			out.push_back(pList->GetChild(i));
	}
	return out;
}

// ---------------------------------------------------------------------------------------------
// Sources

int CModelCompile::AddSource(const CModelDocNode *pNode, const char *pszAttribute)
{
	const CUtlString given = pNode->GetString(pszAttribute);
	if (given.empty())
	{
		Error(pNode, "%s \"%s\" names no source file (%s)", pNode->GetClassName(), pNode->GetName().c_str(), pszAttribute);
		return -1;
	}
	CUtlString relative, why;
	if (!ResourceCompiler_NormalizeReference(given, relative, why))
	{
		Error(pNode, "%s \"%s\": the source \"%s\" is refused: %s", pNode->GetClassName(), pNode->GetName().c_str(), given.c_str(), why.c_str());
		return -1;
	}
	const auto it = m_SourceOfPath.find(relative);
	if (it != m_SourceOfPath.end())
		return it->second;
	const CUtlString path = m_Roots.ContentPath(relative);
	if (!Plat_FileExists(path.c_str()) || Plat_IsDirectory(path.c_str()))
	{
		Error(pNode, "%s \"%s\": the source file %s does not exist (%s)", pNode->GetClassName(), pNode->GetName().c_str(), relative.c_str(),
			path.c_str());
		return -1;
	}
	ModelSource_t source;
	source.m_Relative = relative;
	source.m_pFirstUser = pNode;
	m_Sources.push_back(std::move(source));
	m_SourceOfPath.emplace(relative, (int)m_Sources.size() - 1);
	return (int)m_Sources.size() - 1;
}

void CModelCompile::LoadSources()
{
	// Side by side: assimp's import of one file is independent of another's.
	std::atomic<size_t> next{ 0 };
	auto work = [&]() {
		for (size_t i = next++; i < m_Sources.size(); i = next++)
		{
			ModelSource_t &source = m_Sources[i];
			source.m_bLoaded = LoadSourceSceneForCompile(m_Roots.ContentPath(source.m_Relative).c_str(), source.m_Scene, source.m_Error);
			if (source.m_bLoaded)
				PrepareSourceForModel(source.m_Scene, m_flScale);
		}
	};
	ResourceCompiler_RunWorkers(std::max(1, std::min(m_RC.ThreadCount(), (int)m_Sources.size())), work);
	for (const ModelSource_t &source : m_Sources)
	{
		if (!source.m_bLoaded)
			Error(source.m_pFirstUser, "cannot read the source %s: %s", source.m_Relative.c_str(), source.m_Error.c_str());
	}
}

bool CModelCompile::BuildSkeleton()
{
	// Mesh sources first, in the order of the mesh nodes, then the animation sources.
	std::vector<int> order;
	for (int source : m_MeshSource)
	{
		if (source >= 0 && std::find(order.begin(), order.end(), source) == order.end())
			order.push_back(source);
	}
	for (size_t s = 0; s < m_Sources.size(); ++s)
	{
		if (std::find(order.begin(), order.end(), (int)s) == order.end())
			order.push_back((int)s);
	}
	for (int s : order)
	{
		ModelSource_t &source = m_Sources[(size_t)s];
		if (!source.m_bLoaded)
			continue;
		std::vector<CUtlString> warnings;
		m_Skeleton.AddSource(source.m_Scene, source.m_Relative, source.m_JointToBone, warnings);
		for (const CUtlString &warning : warnings)
			Warning(source.m_pFirstUser, "%s", warning.c_str());
	}
	m_Skeleton.Finish();
	m_Skeleton.ToCompiled(m_Model.m_Bones);
	return true;
}

// ---------------------------------------------------------------------------------------------
// Materials and meshes

int32 CModelCompile::AddMaterial(const CUtlString &path, const CModelDocNode *pNode, bool bNamedBySource)
{
	const auto it = m_MaterialOfPath.find(path);
	if (it != m_MaterialOfPath.end())
	{
		if (!bNamedBySource)
			m_MaterialNamedBySource[(size_t)it->second] = false;
		return it->second;
	}
	const int32 index = (int32)m_MaterialSources.size();
	m_MaterialSources.push_back(path);
	m_MaterialUsers.push_back(pNode);
	m_MaterialNamedBySource.push_back(bNamedBySource);
	m_MaterialOfPath.emplace(path, index);
	m_Model.m_Materials.push_back(ResourceCompiler_CompiledName(path));
	return index;
}

bool CModelCompile::MaterialPathOfName(const CUtlString &name, CUtlString &path, const CModelDocNode *pNode)
{
	CUtlString text = name;
	std::replace(text.begin(), text.end(), '\\', '/');
	const size_t at = LowerCase(text).find("materials/");
	if (at != CUtlString::npos)
		text = text.substr(at);
	else
		text = "materials/" + text;
	if (text.size() < 5 || !V_StrEqualNoCase(std::string_view(text).substr(text.size() - 5), ".zmat"))
		text += ".zmat";
	CUtlString why;
	if (!ResourceCompiler_NormalizeReference(text, path, why))
	{
		Error(pNode, "the material name \"%s\" gives no usable path (%s): %s", name.c_str(), text.c_str(), why.c_str());
		return false;
	}
	return true;
}

int CModelCompile::FindMesh(std::string_view name) const
{
	for (size_t m = 0; m < m_Model.m_Meshes.size(); ++m)
	{
		if (V_StrEqualNoCase(m_Model.m_Meshes[m].m_Name, name))
			return (int)m;
	}
	return -1;
}

void CModelCompile::BuildMeshes()
{
	// The default material group: the global default for every polygon, and remaps that apply
	// to the meshes.
	std::vector<ModelDocRemap_t> defaultRemaps;
	for (CModelDocNode *pGroup : ListChildren("MaterialGroupList"))
	{
		if (!pGroup->IsClass("DefaultMaterialGroup"))
			continue;
		if (m_pDefaultGroup)
		{
			Warning(pGroup, "a second DefaultMaterialGroup is ignored; the first one holds");
			continue;
		}
		m_pDefaultGroup = pGroup;
		const CUtlString global = pGroup->GetString("global_default_material");
		if (!global.empty())
		{
			CUtlString why;
			if (!ResourceCompiler_NormalizeReference(global, m_GlobalDefault, why))
				Error(pGroup, "the global default material \"%s\" is refused: %s", global.c_str(), why.c_str());
		}
		for (const ModelDocRemap_t &remap : pGroup->GetRemaps("remaps"))
			defaultRemaps.push_back(remap);
	}
	const bool bUseGlobal = m_pDefaultGroup && m_pDefaultGroup->GetBool("use_global_default") && !m_GlobalDefault.empty();
	auto remapped = [&](const CUtlString &path) {
		for (const ModelDocRemap_t &remap : defaultRemaps)
		{
			CUtlString from, why;
			if (ResourceCompiler_NormalizeReference(remap.m_From, from, why) && from == path)
			{
				CUtlString to;
				if (ResourceCompiler_NormalizeReference(remap.m_To, to, why))
					return to;
				Error(m_pDefaultGroup, "the remap to \"%s\" is refused: %s", remap.m_To.c_str(), why.c_str());
			}
		}
		return path;
	};

	std::vector<CompiledMesh_t> meshes(m_MeshNodes.size());
	std::vector<ModelMeshInput_t> inputs(m_MeshNodes.size());
	for (size_t n = 0; n < m_MeshNodes.size(); ++n)
	{
		const CModelDocNode *pNode = m_MeshNodes[n];
		const int s = m_MeshSource[n];
		if (s < 0 || !m_Sources[(size_t)s].m_bLoaded)
			continue;
		const ModelSource_t &source = m_Sources[(size_t)s];
		ModelMeshInput_t &input = inputs[n];
		input.m_pScene = &source.m_Scene;
		input.m_pJointToBone = &source.m_JointToBone;
		input.m_nFallbackBone = m_Skeleton.RootBone();
		bool bMissing = false;
		for (const CSourceMesh &mesh : source.m_Scene.meshes)
		{
			std::vector<int32> slots;
			for (const CUtlString &name : mesh.m_Materials)
			{
				CUtlString path;
				if (bUseGlobal)
					path = m_GlobalDefault;
				else if (!MaterialPathOfName(name, path, pNode))
				{
					slots.push_back(0);
					continue;
				}
				slots.push_back(AddMaterial(remapped(path), bUseGlobal ? m_pDefaultGroup : pNode, !bUseGlobal));
			}
			// Polygons without a material take the global default.
			bool bUnassigned = mesh.m_PolygonMaterial.empty() && mesh.PolygonCount() > 0;
			for (int32 material : mesh.m_PolygonMaterial)
				bUnassigned = bUnassigned || material < 0 || (size_t)material >= mesh.m_Materials.size();
			if (bUnassigned && m_GlobalDefault.empty())
			{
				if (!bMissing)
					Error(pNode, "the mesh \"%s\" (%s) has polygons without a material, and the document names no default material "
								 "(DefaultMaterialGroup's global_default_material)",
						pNode->GetName().c_str(), source.m_Relative.c_str());
				bMissing = true;
				slots.push_back(0);
			}
			else
				slots.push_back(m_GlobalDefault.empty() ? 0 : AddMaterial(remapped(m_GlobalDefault), m_pDefaultGroup));
			input.m_SlotMaterial.push_back(std::move(slots));
		}
	}
	if (m_bFailed)
		return;

	// The meshes side by side.
	std::vector<ModelMeshStats_t> stats(m_MeshNodes.size());
	std::vector<CUtlString> errors(m_MeshNodes.size());
	std::vector<bool> built(m_MeshNodes.size(), false);
	std::atomic<size_t> next{ 0 };
	auto work = [&]() {
		for (size_t n = next++; n < m_MeshNodes.size(); n = next++)
		{
			if (inputs[n].m_pScene)
				built[n] = BuildModelMesh(inputs[n], meshes[n], stats[n], errors[n]);
		}
	};
	ResourceCompiler_RunWorkers(std::max(1, std::min(m_RC.ThreadCount(), (int)m_MeshNodes.size())), work);

	for (size_t n = 0; n < m_MeshNodes.size(); ++n)
	{
		const CModelDocNode *pNode = m_MeshNodes[n];
		if (!inputs[n].m_pScene)
			continue;
		const CUtlString &sourceName = m_Sources[(size_t)m_MeshSource[n]].m_Relative;
		if (!built[n])
		{
			Error(pNode, "the mesh \"%s\" (%s): %s", pNode->GetName().c_str(), sourceName.c_str(), errors[n].c_str());
			continue;
		}
		CompiledMesh_t &mesh = meshes[n];
		mesh.m_Name = pNode->GetName();
		if ((int64)mesh.PrimitiveCount() != stats[n].nSourceTriangles)
			Error(pNode, "the mesh \"%s\" has %llu triangles, but its source %s fans into %lld", pNode->GetName().c_str(),
				(unsigned long long)mesh.PrimitiveCount(), sourceName.c_str(), (long long)stats[n].nSourceTriangles);
		if (stats[n].nUnweightedPositions)
			Warning(pNode, "the mesh \"%s\" (%s) has %lld positions that no bone weights; they follow the bone \"%s\"", pNode->GetName().c_str(),
				sourceName.c_str(), (long long)stats[n].nUnweightedPositions,
				m_Skeleton.RootBone() >= 0 ? m_Skeleton.Bones()[(size_t)m_Skeleton.RootBone()].m_Name.c_str() : "");
		if (stats[n].nPolygonsWithoutCorners)
			Warning(pNode, "the mesh \"%s\" (%s) has %lld polygons of fewer than three corners; they make no triangle", pNode->GetName().c_str(),
				sourceName.c_str(), (long long)stats[n].nPolygonsWithoutCorners);
		if (mesh.PrimitiveCount() == 0)
			Warning(pNode, "the mesh \"%s\" (%s) has no triangles", pNode->GetName().c_str(), sourceName.c_str());
		m_RC.Log().Progress("  mesh %s: %u vertices, %llu triangles, %zu draw calls, %zu bones", mesh.m_Name.c_str(), mesh.VertexCount(),
			(unsigned long long)mesh.PrimitiveCount(), mesh.m_DrawCalls.size(), mesh.m_Bones.size());
	}
	m_Model.m_Meshes = std::move(meshes);
}

void CModelCompile::BuildLods()
{
	const std::vector<CModelDocNode *> groups = ListChildren("LODGroupList");
	if (groups.empty())
	{
		m_Model.m_LodSwitchThresholds.assign(1, 0.0f);
		for (CompiledMesh_t &mesh : m_Model.m_Meshes)
			mesh.m_nLodMask = 1;
		return;
	}
	if (groups.size() > CCompiledModel::MAX_LODS)
	{
		Error(groups[CCompiledModel::MAX_LODS], "the document has %zu LOD groups; a model has at most %u", groups.size(), (uint32)CCompiledModel::MAX_LODS);
		return;
	}
	std::vector<uint32> masks(m_Model.m_Meshes.size(), 0);
	for (size_t i = 0; i < groups.size(); ++i)
	{
		const CModelDocNode *pGroup = groups[i];
		const float threshold = pGroup->GetFloat("switch_threshold");
		if (!std::isfinite(threshold))
			Error(pGroup, "the LOD group \"%s\" has no usable switch_threshold", pGroup->GetName().c_str());
		m_Model.m_LodSwitchThresholds.push_back(std::isfinite(threshold) ? threshold : 0.0f);
		for (const CUtlString &name : pGroup->GetStringArray("meshes"))
		{
			const int mesh = FindMesh(name);
			if (mesh < 0)
			{
				Error(pGroup, "the LOD group \"%s\" names the mesh \"%s\", which the document does not have", pGroup->GetName().c_str(), name.c_str());
				continue;
			}
			masks[(size_t)mesh] |= 1u << i;
		}
	}
	const uint32 all = groups.size() >= 32 ? 0xFFFFFFFFu : (1u << groups.size()) - 1;
	for (size_t m = 0; m < masks.size(); ++m)
		m_Model.m_Meshes[m].m_nLodMask = masks[m] ? masks[m] : all;
}

void CModelCompile::BuildBodyGroups()
{
	for (CModelDocNode *pGroup : ListChildren("BodyGroupList"))
	{
		if (!pGroup->IsClass("BodyGroup"))
			continue;
		CompiledBodyGroup_t group;
		group.m_Name = pGroup->GetName();
		for (int c = 0; c < pGroup->GetChildCount(); ++c)
		{
			const CModelDocNode *pChoice = pGroup->GetChild(c);
			if (!pChoice->IsClass("BodyGroupChoice"))
				continue;
			CompiledBodyGroupChoice_t choice;
			for (const CUtlString &name : pChoice->GetStringArray("meshes"))
			{
				const int mesh = FindMesh(name);
				if (mesh < 0)
				{
					Error(pChoice, "a choice of the body group \"%s\" names the mesh \"%s\", which the document does not have", group.m_Name.c_str(),
						name.c_str());
					continue;
				}
				choice.m_Meshes.push_back((uint32)mesh);
				choice.m_Name += (choice.m_Name.empty() ? "" : "+") + m_Model.m_Meshes[(size_t)mesh].m_Name;
			}
			if (choice.m_Name.empty())
				choice.m_Name = "empty";
			group.m_Choices.push_back(std::move(choice));
		}
		m_Model.m_BodyGroups.push_back(std::move(group));
	}
}

void CModelCompile::BuildMaterialGroups()
{
	CompiledMaterialGroup_t defaults;
	defaults.m_Name = "default";
	m_Model.m_MaterialGroups.push_back(defaults);
	for (CModelDocNode *pGroup : ListChildren("MaterialGroupList"))
	{
		if (!pGroup->IsClass("MaterialGroup"))
			continue;
		CompiledMaterialGroup_t group;
		group.m_Name = pGroup->GetName();
		for (const ModelDocRemap_t &remap : pGroup->GetRemaps("remaps"))
		{
			CUtlString from, to, why;
			if (!ResourceCompiler_NormalizeReference(remap.m_From, from, why) || !ResourceCompiler_NormalizeReference(remap.m_To, to, why))
			{
				Error(pGroup, "the material group \"%s\" remaps \"%s\" to \"%s\": %s", group.m_Name.c_str(), remap.m_From.c_str(), remap.m_To.c_str(),
					why.c_str());
				continue;
			}
			if (!m_MaterialOfPath.count(from))
				Warning(pGroup, "the material group \"%s\" remaps %s, which no mesh uses", group.m_Name.c_str(), from.c_str());
			CompiledMaterialRemap_t out;
			out.m_nFrom = (uint32)AddMaterial(from, pGroup);
			out.m_nTo = (uint32)AddMaterial(to, pGroup);
			group.m_Remaps.push_back(out);
		}
		m_Model.m_MaterialGroups.push_back(std::move(group));
	}
}

int CModelCompile::FindBoneOrFail(const CModelDocNode *pNode, const char *pszBone, const char *pszWhat)
{
	if (!*pszBone)
		return -1;
	const int bone = m_Skeleton.Find(pszBone);
	if (bone < 0)
		Error(pNode, "%s \"%s\" names the parent bone \"%s\", which the skeleton does not have", pszWhat, pNode->GetName().c_str(), pszBone);
	return bone;
}

void CModelCompile::BuildAttachments()
{
	for (CModelDocNode *pNode : ListChildren("AttachmentList"))
	{
		if (!pNode->IsClass("Attachment"))
			continue;
		CompiledAttachment_t attachment;
		attachment.m_Name = pNode->GetName();
		attachment.m_nParentBone = FindBoneOrFail(pNode, pNode->GetString("parent_bone"), "the attachment");
		attachment.m_vOrigin = pNode->GetVector("relative_origin");
		attachment.m_Angles = pNode->GetAngles("relative_angles");
		attachment.m_bIgnoreRotation = pNode->GetBool("ignore_rotation");
		m_Model.m_Attachments.push_back(std::move(attachment));
	}
}

void CModelCompile::BuildHitboxes()
{
	for (CModelDocNode *pNode : ListChildren("HitboxSetList"))
	{
		CompiledHitboxSet_t set;
		set.m_Name = pNode->GetName();
		if (pNode->IsClass("HitboxSet_Auto"))
		{
			BuildAutoHitboxes(m_Model.m_Meshes, m_Skeleton, set);
			if (set.m_Hitboxes.empty())
				Warning(pNode, "the automatic hitbox set \"%s\" has no hitbox: no skinned bone weights a vertex", set.m_Name.c_str());
		}
		else if (pNode->IsClass("HitboxSet"))
		{
			for (int c = 0; c < pNode->GetChildCount(); ++c)
			{
				const CModelDocNode *pBox = pNode->GetChild(c);
				if (!pBox->IsClass("Hitbox"))
					continue;
				CompiledHitbox_t hitbox;
				hitbox.m_Name = pBox->GetName();
				hitbox.m_nBone = FindBoneOrFail(pBox, pBox->GetString("parent_bone"), "the hitbox");
				hitbox.m_vMins = pBox->GetVector("hitbox_mins");
				hitbox.m_vMaxs = pBox->GetVector("hitbox_maxs");
				for (int k = 0; k < 3; ++k)
				{
					if (hitbox.m_vMins[k] > hitbox.m_vMaxs[k])
					{
						Warning(pBox, "the hitbox \"%s\" has its minimum above its maximum; they are swapped", hitbox.m_Name.c_str());
						std::swap(hitbox.m_vMins[k], hitbox.m_vMaxs[k]);
					}
				}
				set.m_Hitboxes.push_back(std::move(hitbox));
			}
		}
		else
			continue;
		m_Model.m_HitboxSets.push_back(std::move(set));
	}
}

void CModelCompile::BuildPoseParameters()
{
	for (CModelDocNode *pNode : ListChildren("PoseParamList"))
	{
		if (!pNode->IsClass("PoseParam"))
			continue;
		CompiledPoseParameter_t pose;
		pose.m_Name = pNode->GetName();
		pose.m_flMin = pNode->GetFloat("poseparam_min");
		pose.m_flMax = pNode->GetFloat("poseparam_max");
		pose.m_bLooping = pNode->GetBool("poseparam_looping");
		pose.m_flLoopRange = pNode->GetFloat("poseparam_loop");
		if (!std::isfinite(pose.m_flMin) || !std::isfinite(pose.m_flMax) || !std::isfinite(pose.m_flLoopRange))
			Error(pNode, "the pose parameter \"%s\" has a range that is not a number", pose.m_Name.c_str());
		else if (pose.m_flMin > pose.m_flMax)
			Warning(pNode, "the pose parameter \"%s\" runs from %g down to %g", pose.m_Name.c_str(), pose.m_flMin, pose.m_flMax);
		m_Model.m_PoseParameters.push_back(std::move(pose));
	}
}

void CModelCompile::BuildWeightLists()
{
	const std::vector<ModelBone_t> &bones = m_Skeleton.Bones();
	for (CModelDocNode *pNode : ListChildren("WeightListList"))
	{
		if (!pNode->IsClass("WeightList"))
			continue;
		CompiledWeightList_t list;
		list.m_Name = pNode->GetName();
		std::vector<float> given(bones.size(), -1.0f);
		for (const ModelDocWeight_t &weight : pNode->GetWeights("weights"))
		{
			const int bone = m_Skeleton.Find(weight.m_Bone.c_str());
			if (bone < 0)
			{
				Warning(pNode, "the weight list \"%s\" names the bone \"%s\", which the skeleton does not have", list.m_Name.c_str(), weight.m_Bone.c_str());
				continue;
			}
			given[(size_t)bone] = std::isfinite(weight.m_flWeight) ? std::clamp(weight.m_flWeight, 0.0f, 1.0f) : 0.0f;
		}
		// A bone not listed takes its parent's weight; parents come first.
		list.m_Weights.resize(bones.size());
		for (size_t b = 0; b < bones.size(); ++b)
		{
			if (given[b] >= 0.0f)
				list.m_Weights[b] = given[b];
			else
				list.m_Weights[b] = bones[b].m_nParent >= 0 ? list.m_Weights[(size_t)bones[b].m_nParent] : 0.0f;
		}
		m_Model.m_WeightLists.push_back(std::move(list));
	}
}

void CModelCompile::BuildSequences()
{
	std::vector<CModelDocNode *> nodes;
	for (CModelDocNode *pNode : ListChildren("AnimationList"))
	{
		if (pNode->IsClass("AnimFile") || pNode->IsClass("AnimBindPose") || pNode->IsClass("1DBlend"))
			nodes.push_back(pNode);
	}
	const int boneCount = (int)m_Skeleton.Bones().size();
	std::unordered_map<CUtlString, int> sequenceOfName;
	for (size_t s = 0; s < nodes.size(); ++s)
		sequenceOfName.emplace(LowerCase(nodes[s]->GetName()), (int)s);
	auto findSequence = [&](const CUtlString &name) {
		const auto it = sequenceOfName.find(LowerCase(name));
		return it == sequenceOfName.end() ? -1 : it->second;
	};

	// The frames as the sources give them, before any subtraction.
	std::vector<ModelAnimationFrames_t> raw(nodes.size());
	std::vector<bool> hasFrames(nodes.size(), false);
	for (size_t s = 0; s < nodes.size(); ++s)
	{
		const CModelDocNode *pNode = nodes[s];
		if (pNode->IsClass("AnimBindPose"))
		{
			BindPoseFrames(m_Skeleton, raw[s]);
			hasFrames[s] = true;
		}
		else if (pNode->IsClass("AnimFile"))
		{
			CUtlString relative, why;
			if (!ResourceCompiler_NormalizeReference(pNode->GetString("source_filename"), relative, why))
				continue; // reported when the sources were gathered
			const auto found = m_SourceOfPath.find(relative);
			if (found == m_SourceOfPath.end() || !m_Sources[(size_t)found->second].m_bLoaded)
				continue;
			const ModelSource_t &source = m_Sources[(size_t)found->second];
			const int take = pNode->GetInt("take");
			CUtlString error;
			if (source.m_Scene.animations.empty())
			{
				Error(pNode, "the animation \"%s\": the source %s holds no animation", pNode->GetName().c_str(), source.m_Relative.c_str());
				continue;
			}
			if (!SampleModelAnimation(source.m_Scene, take, source.m_JointToBone, m_Skeleton, pNode->GetInt("start_frame"),
					pNode->GetInt("end_frame"), pNode->GetFloat("fps"), raw[s], error))
			{
				Error(pNode, "the animation \"%s\" (%s): %s", pNode->GetName().c_str(), source.m_Relative.c_str(), error.c_str());
				continue;
			}
			hasFrames[s] = true;
		}
	}

	m_Model.m_Sequences.resize(nodes.size());
	for (size_t s = 0; s < nodes.size(); ++s)
	{
		const CModelDocNode *pNode = nodes[s];
		CompiledSequence_t &sequence = m_Model.m_Sequences[s];
		sequence.m_Name = pNode->GetName();
		const bool bBlend = pNode->IsClass("1DBlend");
		sequence.m_bLooping = pNode->HasAttribute("looping") && pNode->GetBool("looping");
		sequence.m_bDelta = pNode->HasAttribute("delta") && pNode->GetBool("delta");
		if (pNode->HasAttribute("weight_list_name"))
		{
			const CUtlString list = pNode->GetString("weight_list_name");
			if (!list.empty())
			{
				for (size_t w = 0; w < m_Model.m_WeightLists.size() && sequence.m_nWeightList < 0; ++w)
				{
					if (V_StrEqualNoCase(m_Model.m_WeightLists[w].m_Name, list))
						sequence.m_nWeightList = (int32)w;
				}
				if (sequence.m_nWeightList < 0)
					Error(pNode, "the sequence \"%s\" uses the weight list \"%s\", which the document does not have", sequence.m_Name.c_str(), list.c_str());
			}
		}
		if (pNode->HasAttribute("activity_name"))
		{
			const CUtlString activity = pNode->GetString("activity_name");
			if (!activity.empty())
				sequence.m_Activities.push_back(CompiledActivity_t{ activity, pNode->GetInt("activity_weight") });
		}

		ModelAnimationFrames_t frames;
		if (hasFrames[s])
			frames = raw[s];
		for (int c = 0; c < pNode->GetChildCount(); ++c)
		{
			const CModelDocNode *pChild = pNode->GetChild(c);
			if (pChild->IsClass("AnimSubtract"))
			{
				if (bBlend)
				{
					Warning(pChild, "the blend \"%s\" has no frames of its own to subtract from; the subtraction is ignored", sequence.m_Name.c_str());
					continue;
				}
				const CUtlString name = pChild->GetString("anim_name");
				const int reference = findSequence(name);
				if (reference < 0)
				{
					Error(pChild, "the sequence \"%s\" subtracts the animation \"%s\", which the document does not have", sequence.m_Name.c_str(),
						name.c_str());
					continue;
				}
				if (!hasFrames[(size_t)reference])
				{
					if (!nodes[(size_t)reference]->IsClass("AnimFile") || hasFrames[s])
						Error(pChild, "the sequence \"%s\" subtracts \"%s\", which has no frames", sequence.m_Name.c_str(), name.c_str());
					continue;
				}
				const int frame = pChild->GetInt("frame");
				if (frame < 0 || frame >= raw[(size_t)reference].nFrameCount)
				{
					Error(pChild, "the sequence \"%s\" subtracts frame %d of \"%s\", which has frames 0 to %d", sequence.m_Name.c_str(), frame,
						name.c_str(), raw[(size_t)reference].nFrameCount - 1);
					continue;
				}
				if (hasFrames[s])
					SubtractFrame(frames, raw[(size_t)reference].frames.data() + (size_t)frame * boneCount, boneCount);
				sequence.m_bDelta = true;
			}
			else if (pChild->IsClass("ExtractMotion"))
			{
				uint32 flags = 0;
				flags |= pChild->GetBool("extract_tx") ? COMPILED_MOTION_TX : 0;
				flags |= pChild->GetBool("extract_ty") ? COMPILED_MOTION_TY : 0;
				flags |= pChild->GetBool("extract_tz") ? COMPILED_MOTION_TZ : 0;
				flags |= pChild->GetBool("extract_rz") ? COMPILED_MOTION_RZ : 0;
				const CUtlString rootName = pChild->GetString("root_bone_name");
				const int bone = rootName.empty() ? m_Skeleton.RootBone() : m_Skeleton.Find(rootName.c_str());
				if (bone < 0)
				{
					Error(pChild, "the sequence \"%s\" extracts the motion of the bone \"%s\", which the skeleton does not have", sequence.m_Name.c_str(),
						rootName.empty() ? "(the root)" : rootName.c_str());
					continue;
				}
				sequence.m_nMotionFlags |= flags;
				sequence.m_nMotionRootBone = bone;
				if (hasFrames[s])
					ExtractMotion(frames, boneCount, bone, flags);
			}
			else if (pChild->IsClass("ActivityModifier"))
			{
				const CUtlString name = pChild->GetString("activity_name");
				if (name.empty())
					Warning(pChild, "an activity modifier of \"%s\" has no name; it is left out", sequence.m_Name.c_str());
				else
					sequence.m_Modifiers.push_back(CompiledActivity_t{ name, pChild->GetInt("activity_weight") });
			}
			else if (pChild->IsClass("AnimAddLayer"))
			{
				const CUtlString name = pChild->GetString("anim_name");
				const int layer = findSequence(name);
				if (layer < 0)
					Error(pChild, "the sequence \"%s\" adds the layer \"%s\", which the document does not have", sequence.m_Name.c_str(), name.c_str());
				else if ((size_t)layer == s)
					Error(pChild, "the sequence \"%s\" adds itself as a layer", sequence.m_Name.c_str());
				else
					sequence.m_AddLayers.push_back((uint32)layer);
			}
			else if (pChild->IsClass("AnimEvent"))
			{
				CompiledEvent_t event;
				event.m_Class = pChild->GetString("event_class");
				event.m_nFrame = pChild->GetInt("event_frame");
				const KeyValues3 *pKeys = pChild->GetKV3("event_keys");
				CUtlBuffer text;
				if (pKeys && !pKeys->IsNull() && SaveKV3(KV3_ENCODING_TEXT, KV3_FORMAT_GENERIC, pKeys, nullptr, &text, KV3_SAVE_NO_HEADER))
					event.m_Keys = CUtlString(text.View());
				if (event.m_Class.empty())
					Warning(pChild, "an event of \"%s\" has no class", sequence.m_Name.c_str());
				const int last = std::max(0, frames.nFrameCount - 1);
				if (hasFrames[s] && (event.m_nFrame < 0 || event.m_nFrame > last))
				{
					Warning(pChild, "the event \"%s\" of \"%s\" is at frame %d; the sequence has frames 0 to %d, so it goes to frame %d",
						event.m_Class.c_str(), sequence.m_Name.c_str(), event.m_nFrame, last, std::clamp(event.m_nFrame, 0, last));
					event.m_nFrame = std::clamp(event.m_nFrame, 0, last);
				}
				sequence.m_Events.push_back(std::move(event));
			}
		}

		if (bBlend)
		{
			const CUtlString pose = pNode->GetString("blend_pose_param");
			sequence.m_nBlendPoseParameter = -1;
			for (size_t p = 0; p < m_Model.m_PoseParameters.size(); ++p)
			{
				if (V_StrEqualNoCase(m_Model.m_PoseParameters[p].m_Name, pose))
					sequence.m_nBlendPoseParameter = (int32)p;
			}
			if (sequence.m_nBlendPoseParameter < 0)
				Error(pNode, "the blend \"%s\" blends over the pose parameter \"%s\", which the document does not have", sequence.m_Name.c_str(),
					pose.c_str());
			const CUtlVector<ModelDocBlendKey_t> &keys = pNode->GetBlendKeys("blend_keys");
			if (keys.empty())
				Warning(pNode, "the blend \"%s\" has no keys", sequence.m_Name.c_str());
			for (const ModelDocBlendKey_t &key : keys)
			{
				const int blended = findSequence(key.m_ChildName);
				if (blended < 0 || (size_t)blended == s)
				{
					Error(pNode, "the blend \"%s\" has a key for \"%s\", which is no other sequence of the document", sequence.m_Name.c_str(),
						key.m_ChildName.c_str());
					continue;
				}
				if (!std::isfinite(key.m_flValue))
					Error(pNode, "the blend \"%s\" has a key for \"%s\" at no number", sequence.m_Name.c_str(), key.m_ChildName.c_str());
				sequence.m_BlendKeys.push_back(CompiledBlendKey_t{ (uint32)blended, key.m_flValue });
				// A blend has no frames of its own; it lasts as long as its longest key.
				if (hasFrames[(size_t)blended] && (uint32)raw[(size_t)blended].nFrameCount > sequence.m_nFrameCount)
				{
					sequence.m_nFrameCount = (uint32)raw[(size_t)blended].nFrameCount;
					sequence.m_flFps = raw[(size_t)blended].flFps;
				}
			}
			sequence.m_nBoneCount = 0;
		}
		else if (hasFrames[s])
			StoreFrames(frames, boneCount, sequence);
		m_RC.Log().Progress("  sequence %s: %u frames at %g fps%s%s", sequence.m_Name.c_str(), sequence.m_nFrameCount, sequence.m_flFps,
			sequence.m_bLooping ? ", looping" : "", sequence.m_bDelta ? ", delta" : "");
	}
}

void CModelCompile::CompileSnapshots()
{
	for (CModelDocNode *pNode : ListChildren("ZSNAPFileList"))
	{
		if (!pNode->IsClass("ZSNAPFile"))
			continue;
		const CUtlString given = pNode->GetString("filename");
		CUtlString relative, output, why;
		if (given.empty() || !ResourceCompiler_NormalizeReference(given, relative, why))
		{
			Error(pNode, "a particle snapshot names the source \"%s\": %s", given.c_str(), given.empty() ? "no file" : why.c_str());
			continue;
		}
		const CUtlString outputGiven = pNode->GetString("output_zsnap");
		if (outputGiven.empty())
			output = ResourceCompiler_CompiledName(relative);
		else if (!ResourceCompiler_NormalizeReference(outputGiven, output, why))
		{
			Error(pNode, "a particle snapshot names the output \"%s\": %s", outputGiven.c_str(), why.c_str());
			continue;
		}
		if (!Plat_FileExists(m_Roots.ContentPath(relative).c_str()))
		{
			Error(pNode, "the particle snapshot source %s does not exist", relative.c_str());
			continue;
		}
		if (!m_RC.CompileSnapshot(m_Roots, relative, output, pNode->GetString("local_space_bone")))
			Error(pNode, "the particle snapshot %s did not compile", relative.c_str());
	}
}

void CModelCompile::CompileMaterials()
{
	for (size_t m = 0; m < m_MaterialSources.size(); ++m)
	{
		const CUtlString &path = m_MaterialSources[m];
		const CUtlString absolute = m_Roots.ContentPath(path);
		if (!Plat_FileExists(absolute.c_str()) || Plat_IsDirectory(absolute.c_str()))
		{
			// A material that the document names must exist. One that only a mesh source's material
			// name gives is the artist's name from the modelling tool: the game may have it only in
			// its compiled form, and when it exists nowhere its meshes draw with the missing-material
			// look, which is a warning.
			if (!m_MaterialNamedBySource[m])
				Error(m_MaterialUsers[m], "the material %s does not exist (%s)", path.c_str(), absolute.c_str());
			else if (!Plat_FileExists(m_Roots.GamePath(path + "_c").c_str()))
				Warning(m_MaterialUsers[m], "the material %s named by the mesh source does not exist (%s); its meshes have no material",
					path.c_str(), absolute.c_str());
			continue;
		}
		if (!m_RC.CompileMaterial(m_Roots, path))
			Error(m_MaterialUsers[m], "the material %s did not compile", path.c_str());
	}
}

bool CModelCompile::Run(const CUtlString &output)
{
	CUtlBuffer text;
	CUtlString error;
	if (!Plat_ReadFile(m_Roots.ContentPath(m_Relative).c_str(), text, &error))
	{
		m_RC.Log().Error(m_Relative, 0, "cannot read the model document: %s", error.c_str());
		return false;
	}
	if (!m_Doc.LoadFromText(text.View(), m_Relative.c_str(), &error))
	{
		m_RC.Log().Error("", 0, "%s", error.c_str());
		return false;
	}
	MapLines(text.View());

	// Sources of the meshes and animations.
	for (CModelDocNode *pNode : ListChildren("RenderMeshList"))
	{
		if (!pNode->IsClass("RenderMeshFile"))
			continue;
		if (m_MeshNodes.empty())
		{
			m_flScale = pNode->GetFloat("import_scale");
			if (!std::isfinite(m_flScale) || !(m_flScale > 0.0))
			{
				Error(pNode, "the mesh \"%s\" has the import_scale %g; a scale is above 0", pNode->GetName().c_str(), m_flScale);
				m_flScale = 1.0;
			}
		}
		else if (pNode->GetFloat("import_scale") != (float)m_flScale)
			Warning(pNode, "the mesh \"%s\" has another import_scale (%g) than the first mesh (%g); the first one holds for the whole model",
				pNode->GetName().c_str(), pNode->GetFloat("import_scale"), m_flScale);
		m_MeshNodes.push_back(pNode);
		m_MeshSource.push_back(AddSource(pNode, "filename"));
	}
	for (CModelDocNode *pNode : ListChildren("AnimationList"))
	{
		if (pNode->IsClass("AnimFile"))
			AddSource(pNode, "source_filename");
	}
	if (m_MeshNodes.empty())
		m_RC.Log().Warning(m_Relative, 0, "the model has no mesh (no RenderMeshFile)");
	if (m_bFailed)
	{
		m_RC.Log().Error(m_Relative, 0, "the model is not compiled");
		return false;
	}

	LoadSources();
	if (!m_bFailed)
		BuildSkeleton();
	if (!m_bFailed)
		BuildMeshes();
	if (m_bFailed)
	{
		m_RC.Log().Error(m_Relative, 0, "the model is not compiled");
		return false;
	}
	BuildLods();
	BuildBodyGroups();
	BuildMaterialGroups();
	BuildAttachments();
	BuildHitboxes();
	BuildPoseParameters();
	BuildWeightLists();
	BuildSequences();
	if (!m_bFailed)
	{
		CompileSnapshots();
		CompileMaterials();
	}
	if (m_bFailed)
	{
		m_RC.Log().Error(m_Relative, 0, "the model is not compiled");
		return false;
	}

	m_Model.ComputeBounds();
	const CUtlString path = m_Roots.GamePath(output);
	if (!ResourceCompiler_CreateParentFolders(path, error) || !WriteCompiledModel(path.c_str(), m_Model, &error))
	{
		m_RC.Log().Error(m_Relative, 0, "cannot write %s: %s", output.c_str(), error.c_str());
		return false;
	}
	m_RC.Log().Progress("  %s: %zu meshes, %zu bones, %zu sequences, %zu materials -> %s", m_Relative.c_str(), m_Model.m_Meshes.size(),
		m_Model.m_Bones.size(), m_Model.m_Sequences.size(), m_Model.m_Materials.size(), output.c_str());
	return true;
}
} // namespace

bool CompileModelSource(CResourceCompiler &rc, const CompileRoots_t &roots, const CUtlString &relative, const CUtlString &output)
{
	CModelCompile compile(rc, roots, relative);
	return compile.Run(output);
}
