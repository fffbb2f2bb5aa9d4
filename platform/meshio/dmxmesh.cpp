#include "meshio/dmxmesh.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <unordered_map>
#include <unordered_set>

#include "core/strtools.h"
#include "datamodel/dmxio.h"

namespace
{
constexpr double MAX_ANIMATION_POSES = 4.0 * 1024 * 1024; // frames x joints of one animation
constexpr int MAX_JOINT_COUNT = 64;						  // (joint, weight) pairs per position

// A stream by its current name, else by its previous-generation one.
template <typename T> const std::vector<T> &Stream(const CDmElement *data, const char *name, const char *oldName)
{
	if (data->HasAttribute(name) || !oldName)
		return data->GetArray<T>(name);
	return data->GetArray<T>(oldName);
}

SourceTransform_t ReadTransform(const CDmElement *transform)
{
	SourceTransform_t out;
	if (!transform)
		return out;
	out.position = transform->GetValue<Vector>("position");
	out.orientation = QuaternionNormalize(transform->GetValue<Quaternion>("orientation", Quaternion()));
	return out;
}

class CDmxSceneReader
{
public:
	CDmxSceneReader(const CDmxDocument &document, SourceScene_t &scene, CUtlString &error)
		: m_Doc(document), m_Scene(scene), m_Error(error), m_FileName(document.GetFileName().empty() ? "<dmx>" : document.GetFileName())
	{
	}
	bool Read();

private:
	struct Visit_t
	{
		const CDmElement *pElement;
		int nParentJoint;
		Matrix4_t parentGlobal;
		Matrix4_t parentJointGlobal;
		bool bDirectChild; // no node between it and its parent joint
	};

	bool ReadHierarchy(const CDmElement *model);
	bool ReadMesh(const CDmElement *dag, const CDmElement *mesh, const Matrix4_t &meshToModel, int parentJoint);
	bool ReadAnimations(const CDmElement *list);
	bool Fail(const CDmElement *element, const char *fmt, ...) FMTFUNCTION(3, 4);

	const CDmxDocument &m_Doc;
	SourceScene_t &m_Scene;
	CUtlString &m_Error;
	CUtlString m_FileName;
	std::vector<const CDmElement *> m_JointList;
	std::vector<int> m_JointListToScene; // jointList index to scene joint
	std::unordered_map<const CDmElement *, int> m_JointOfElement;
	std::unordered_map<const CDmElement *, int> m_JointOfTransform;
	std::unordered_map<const CDmElement *, const CDmElement *> m_BindTransform; // joint to its "bind" transform
};

bool CDmxSceneReader::Fail(const CDmElement *element, const char *fmt, ...)
{
	va_list args;
	va_start(args, fmt);
	m_Error = m_FileName + ": ";
	if (element)
		m_Error += V_Format("%s \"%s\": ", element->GetTypeName().c_str(), element->GetName().c_str());
	m_Error += V_FormatV(fmt, args);
	va_end(args);
	return false;
}

bool CDmxSceneReader::Read()
{
	m_Scene = SourceScene_t();
	m_Scene.format = "dmx-" + m_Doc.GetEncodingName();
	m_Scene.nFormatVersion = m_Doc.GetFormatVersion();
	const CDmElement *root = m_Doc.GetRoot();
	if (!root)
		return Fail(nullptr, "the file has no root element");
	const CDmElement *model = root->GetElement("model");
	if (!model)
		model = root->GetElement("skeleton");
	const CDmElement *animations = root->GetElement("animationList");
	if (!model && !animations)
		return Fail(root, "has neither \"model\", \"skeleton\" nor \"animationList\"");
	if (model)
	{
		const char *up = model->GetString("upAxis");
		m_Scene.upAxis = (up[0] == 'Y' || up[0] == 'y') ? 'Y' : 'Z';
		if (!ReadHierarchy(model))
			return false;
	}
	if (animations && !ReadAnimations(animations))
		return false;
	if (!m_Scene.Validate(m_Error))
		return Fail(nullptr, "%s", m_Error.c_str());
	return true;
}

bool CDmxSceneReader::ReadHierarchy(const CDmElement *model)
{
	m_JointList.assign(model->GetArray<CDmElement *>("jointList").begin(), model->GetArray<CDmElement *>("jointList").end());
	std::unordered_set<const CDmElement *> inJointList(m_JointList.begin(), m_JointList.end());
	for (const CDmElement *state : model->GetArray<CDmElement *>("baseStates"))
	{
		if (!state || state->GetName() != "bind")
			continue;
		const std::vector<CDmElement *> &transforms = state->GetArray<CDmElement *>("transforms");
		for (size_t i = 0; i < m_JointList.size() && i < transforms.size(); ++i)
		{
			if (m_JointList[i] && transforms[i])
				m_BindTransform[m_JointList[i]] = transforms[i];
		}
		break;
	}
	auto isJoint = [&](const CDmElement *element) {
		return m_JointList.empty() ? element->GetTypeName() == "DmeJoint" : inJointList.count(element) > 0;
	};
	auto bindLocal = [&](const CDmElement *element, bool bJoint) {
		if (bJoint)
		{
			const auto it = m_BindTransform.find(element);
			if (it != m_BindTransform.end())
				return ReadTransform(it->second);
		}
		return ReadTransform(element->GetElement("transform"));
	};

	std::unordered_set<const CDmElement *> visited;
	std::vector<Visit_t> stack{ Visit_t{ model, -1, Matrix4_t(), Matrix4_t(), true } };
	while (!stack.empty())
	{
		const Visit_t visit = stack.back();
		stack.pop_back();
		const CDmElement *element = visit.pElement;
		if (!element || !visited.insert(element).second)
			continue;
		const bool bJoint = isJoint(element);
		const SourceTransform_t local = bindLocal(element, bJoint);
		const Matrix4_t global = MatrixMultiply(visit.parentGlobal, MatrixFromTransform(local));
		int jointBelow = visit.nParentJoint;
		Matrix4_t jointGlobal = visit.parentJointGlobal;
		bool bDirect = false;
		if (bJoint)
		{
			SourceJoint_t joint;
			joint.name = element->GetName();
			joint.nParent = visit.nParentJoint;
			if (visit.bDirectChild)
				joint.bindLocal = local;
			else
			{
				Matrix4_t parentInverse;
				MatrixInverse(visit.parentJointGlobal, parentInverse);
				joint.bindLocal = TransformFromMatrix(MatrixMultiply(parentInverse, global));
			}
			MatrixInverse(global, joint.inverseBind);
			jointBelow = (int)m_Scene.joints.size();
			m_JointOfElement[element] = jointBelow;
			if (const CDmElement *transform = element->GetElement("transform"))
				m_JointOfTransform[transform] = jointBelow;
			m_Scene.joints.push_back(joint);
			jointGlobal = global;
			bDirect = true;
		}
		if (const CDmElement *shape = element->GetElement("shape"))
		{
			if (shape->GetTypeName() == "DmeMesh" && !ReadMesh(element, shape, global, jointBelow))
				return false;
		}
		const std::vector<CDmElement *> &children = element->GetArray<CDmElement *>("children");
		for (auto it = children.rbegin(); it != children.rend(); ++it)
			stack.push_back(Visit_t{ *it, jointBelow, global, jointGlobal, bDirect });
	}
	// Joints of the list that the hierarchy does not reach stand alone.
	for (const CDmElement *element : m_JointList)
	{
		if (!element || m_JointOfElement.count(element))
			continue;
		SourceJoint_t joint;
		joint.name = element->GetName();
		joint.bindLocal = bindLocal(element, true);
		MatrixInverse(MatrixFromTransform(joint.bindLocal), joint.inverseBind);
		m_JointOfElement[element] = (int)m_Scene.joints.size();
		if (const CDmElement *transform = element->GetElement("transform"))
			m_JointOfTransform[transform] = (int)m_Scene.joints.size();
		m_Scene.joints.push_back(joint);
	}
	m_JointListToScene.clear();
	for (const CDmElement *element : m_JointList)
		m_JointListToScene.push_back(element ? m_JointOfElement.at(element) : -1);
	// Weights were read before every joint had its index: put the scene's indices in now.
	for (CSourceMesh &mesh : m_Scene.meshes)
	{
		for (SkinWeight_t &weight : mesh.m_Weights)
		{
			weight.nJoint = m_JointListToScene[weight.nJoint];
			if (weight.nJoint < 0)
				return Fail(nullptr, "mesh \"%s\": a skin weight names an empty entry of the joint list", mesh.m_Name.c_str());
		}
	}
	return true;
}

bool CDmxSceneReader::ReadMesh(const CDmElement *dag, const CDmElement *meshElement, const Matrix4_t &meshToModel, int parentJoint)
{
	const CDmElement *data = meshElement->GetElement("bindState");
	if (!data)
		data = meshElement->GetElement("currentState");
	if (!data && !meshElement->GetArray<CDmElement *>("baseStates").empty())
		data = meshElement->GetArray<CDmElement *>("baseStates")[0];
	if (!data)
		return Fail(meshElement, "has no vertex data (\"bindState\")");

	CSourceMesh mesh;
	mesh.m_Name = dag->GetName().empty() ? meshElement->GetName() : dag->GetName();
	mesh.m_MeshToModel = meshToModel;
	mesh.m_nParentJoint = parentJoint;
	mesh.m_Positions = Stream<Vector>(data, "position$0", "positions");
	const std::vector<int32> &positionIndices = Stream<int32>(data, "position$0Indices", "positionsIndices");
	const std::vector<Vector> &normals = Stream<Vector>(data, "normal$0", "normals");
	const std::vector<int32> &normalIndices = Stream<int32>(data, "normal$0Indices", "normalsIndices");
	const std::vector<Vector2D> &uvs = Stream<Vector2D>(data, "texcoord$0", "textureCoordinates");
	const std::vector<int32> &uvIndices = Stream<int32>(data, "texcoord$0Indices", "textureCoordinatesIndices");
	const bool bFlipV = data->GetBool("flipVCoordinates");
	const bool bNormals = !normals.empty() && !normalIndices.empty();
	const bool bUVs = !uvs.empty() && !uvIndices.empty();
	const int corners = (int)positionIndices.size();
	if (bNormals && (int)normalIndices.size() != corners)
		return Fail(data, "%zu normal indices for %d corners", normalIndices.size(), corners);
	if (bUVs && (int)uvIndices.size() != corners)
		return Fail(data, "%zu texture coordinate indices for %d corners", uvIndices.size(), corners);

	const std::vector<CDmElement *> &faceSets = meshElement->GetArray<CDmElement *>("faceSets");
	std::vector<int32> polygon;
	for (const CDmElement *faceSet : faceSets)
	{
		if (!faceSet)
			continue;
		const CDmElement *material = faceSet->GetElement("material");
		CUtlString materialName;
		if (material)
			materialName = material->HasAttribute("mtlName") ? CUtlString(material->GetString("mtlName")) : material->GetName();
		const int32 materialIndex = mesh.FindOrAddMaterial(materialName);
		const std::vector<int32> &faces = faceSet->GetArray<int32>("faces");
		for (size_t i = 0; i <= faces.size(); ++i)
		{
			// A last polygon without its -1 is closed all the same.
			if (i == faces.size() || faces[i] < 0)
			{
				if (i < faces.size() && faces[i] != -1)
					return Fail(faceSet, "\"faces\" entry %zu is %d: only -1 may end a polygon", i, faces[i]);
				if (!polygon.empty())
				{
					for (int32 &c : polygon)
					{
						if (bNormals)
						{
							const int32 n = normalIndices[c];
							if (n < 0 || n >= (int)normals.size())
								return Fail(data, "\"normal$0Indices\" entry %d is %d, of %zu normals", c, n, normals.size());
							mesh.m_CornerNormals.push_back(normals[n]);
						}
						if (bUVs)
						{
							const int32 t = uvIndices[c];
							if (t < 0 || t >= (int)uvs.size())
								return Fail(data, "\"texcoord$0Indices\" entry %d is %d, of %zu coordinates", c, t, uvs.size());
							mesh.m_CornerUVs.push_back(bFlipV ? Vector2D(uvs[t].x, 1.0f - uvs[t].y) : uvs[t]);
						}
						const int32 position = positionIndices[c];
						if (position < 0 || position >= mesh.PositionCount())
							return Fail(data, "\"position$0Indices\" entry %d names position %d of %d", c, position, mesh.PositionCount());
						c = position;
					}
					mesh.AddPolygon(polygon, materialIndex);
					polygon.clear();
				}
				continue;
			}
			if (faces[i] >= corners)
				return Fail(faceSet, "\"faces\" entry %zu names corner %d of %d", i, faces[i], corners);
			polygon.push_back(faces[i]);
		}
	}

	const int jointCount = data->GetInt("jointCount");
	const std::vector<float> &weights = Stream<float>(data, "blendweights$0", "jointWeights");
	const std::vector<int32> &indices = Stream<int32>(data, "blendindices$0", "jointIndices");
	if (jointCount > 0 && !weights.empty())
	{
		if (jointCount > MAX_JOINT_COUNT)
			return Fail(data, "\"jointCount\" %d is more than %d", jointCount, MAX_JOINT_COUNT);
		const size_t needed = (size_t)mesh.PositionCount() * jointCount;
		if (weights.size() < needed || indices.size() < needed)
			return Fail(data, "%zu weights and %zu joint indices for %d positions of %d joints", weights.size(), indices.size(),
				mesh.PositionCount(), jointCount);
		mesh.m_WeightStart.push_back(0);
		for (int p = 0; p < mesh.PositionCount(); ++p)
		{
			for (int k = 0; k < jointCount; ++k)
			{
				const float weight = weights[(size_t)p * jointCount + k];
				const int32 joint = indices[(size_t)p * jointCount + k];
				if (!(weight > 0.0f))
					continue;
				if (joint < 0 || joint >= (int)m_JointList.size())
					return Fail(data, "position %d: joint index %d is not one of the %zu of \"jointList\"", p, joint, m_JointList.size());
				mesh.m_Weights.push_back(SkinWeight_t{ joint, weight }); // a joint list index until the hierarchy is read
			}
			mesh.m_WeightStart.push_back((int32)mesh.m_Weights.size());
		}
	}
	m_Scene.meshes.push_back(std::move(mesh));
	return true;
}

// Interpolated value of a log layer at a time; outside its keys the nearest key holds.
template <typename T, typename Lerp> T SampleLog(const std::vector<DmeTime_t> &times, const std::vector<T> &values, DmeTime_t time, Lerp lerp)
{
	const size_t count = std::min(times.size(), values.size());
	const auto it = std::upper_bound(times.begin(), times.begin() + count, time);
	if (it == times.begin())
		return values[0];
	const size_t after = it - times.begin();
	if (after >= count)
		return values[count - 1];
	const DmeTime_t a = times[after - 1], b = times[after];
	const float t = b.m_tms > a.m_tms ? (float)(((double)time.m_tms - a.m_tms) / ((double)b.m_tms - a.m_tms)) : 0.0f;
	return lerp(values[after - 1], values[after], t);
}

bool CDmxSceneReader::ReadAnimations(const CDmElement *list)
{
	const int jointCount = (int)m_Scene.joints.size();
	for (const CDmElement *clip : list->GetArray<CDmElement *>("animations"))
	{
		if (!clip)
			continue;
		SourceAnimation_t animation;
		animation.name = clip->GetName();
		int fps = clip->GetInt("frameRate", 30);
		if (fps <= 0 || fps > 1000)
			fps = 30;
		animation.flFps = (float)fps;
		const CDmElement *timeFrame = clip->GetElement("timeFrame");
		const double offset = timeFrame ? timeFrame->GetValue<DmeTime_t>("offset").Seconds() : 0.0;
		double duration = timeFrame ? timeFrame->GetValue<DmeTime_t>("duration").Seconds() : 0.0;
		float scale = timeFrame ? timeFrame->GetFloat("scale", 1.0f) : 1.0f;
		if (!(scale > 0.0f) || !std::isfinite(scale))
			scale = 1.0f;

		struct Track_t
		{
			int nJoint;
			bool bPosition;
			const std::vector<DmeTime_t> *pTimes;
			const std::vector<Vector> *pPositions;
			const std::vector<Quaternion> *pOrientations;
		};
		std::vector<Track_t> tracks;
		double lastKey = 0.0;
		for (const CDmElement *channel : clip->GetArray<CDmElement *>("channels"))
		{
			if (!channel)
				continue;
			const auto target = m_JointOfTransform.find(channel->GetElement("toElement"));
			if (target == m_JointOfTransform.end())
				continue; // a channel that moves something other than a joint
			const CUtlString attribute = channel->GetString("toAttribute");
			const CDmElement *log = channel->GetElement("log");
			const std::vector<CDmElement *> &layers = log ? log->GetArray<CDmElement *>("layers") : std::vector<CDmElement *>();
			if (layers.empty() || !layers[0])
				continue;
			const CDmElement *layer = layers[0];
			Track_t track{ target->second, attribute == "position", &layer->GetArray<DmeTime_t>("times"), nullptr, nullptr };
			if (attribute == "position")
				track.pPositions = &layer->GetArray<Vector>("values");
			else if (attribute == "orientation")
				track.pOrientations = &layer->GetArray<Quaternion>("values");
			else
				continue;
			const size_t values = track.pPositions ? track.pPositions->size() : track.pOrientations->size();
			if (values != track.pTimes->size())
				return Fail(layer, "%zu times and %zu values", track.pTimes->size(), values);
			if (values == 0)
				continue;
			if (!std::is_sorted(track.pTimes->begin(), track.pTimes->end()))
				return Fail(layer, "its times are not in order");
			lastKey = std::max(lastKey, track.pTimes->back().Seconds());
			tracks.push_back(track);
		}
		if (!(duration > 0.0))
			duration = std::max(0.0, (lastKey - offset) / scale);
		const double frames = std::floor(duration * fps + 0.5) + 1.0;
		if (frames * std::max(jointCount, 1) > MAX_ANIMATION_POSES)
			return Fail(clip, "%.0f frames of %d joints are more than this reader takes", frames, jointCount);
		animation.nFrameCount = (int)frames;
		animation.frames.resize((size_t)animation.nFrameCount * jointCount);
		for (int f = 0; f < animation.nFrameCount; ++f)
		{
			for (int j = 0; j < jointCount; ++j)
				animation.frames[(size_t)f * jointCount + j] = m_Scene.joints[j].bindLocal;
		}
		for (const Track_t &track : tracks)
		{
			for (int f = 0; f < animation.nFrameCount; ++f)
			{
				const DmeTime_t time = DmeTime_t::FromSeconds(offset + (double)f / fps * scale);
				SourceTransform_t &pose = animation.frames[(size_t)f * jointCount + track.nJoint];
				if (track.pPositions)
				{
					pose.position = SampleLog(*track.pTimes, *track.pPositions, time, [](const Vector &a, const Vector &b, float t) {
						return Vector(a.x + (b.x - a.x) * t, a.y + (b.y - a.y) * t, a.z + (b.z - a.z) * t);
					});
				}
				else
					pose.orientation = SampleLog(*track.pTimes, *track.pOrientations, time, QuaternionSlerp);
			}
		}
		m_Scene.animations.push_back(std::move(animation));
	}
	return true;
}
} // namespace

bool LooksLikeDmx(std::string_view bytes)
{
	DmxHeader_t header;
	return DmxReadHeader(bytes.substr(0, DMX_MAX_HEADER_LENGTH + 16), header);
}

CUtlString DmxFormatToken(std::string_view bytes)
{
	DmxHeader_t header;
	if (!DmxReadHeader(bytes.substr(0, DMX_MAX_HEADER_LENGTH + 16), header))
		return {};
	return "dmx-" + header.encodingName;
}

bool LoadDmxScene(const CDmxDocument &document, SourceScene_t &scene, CUtlString &error)
{
	CDmxSceneReader reader(document, scene, error);
	return reader.Read();
}

bool LoadDmxSceneBuffer(const char *name, std::string_view bytes, SourceScene_t &scene, CUtlString &error)
{
	CDmxDocument document;
	if (!DmxLoadBuffer(bytes.data(), bytes.size(), name, document, &error))
		return false;
	document.SetFileName(name ? name : "");
	return LoadDmxScene(document, scene, error);
}

bool LoadDmxSceneFile(const char *path, SourceScene_t &scene, CUtlString &error)
{
	CDmxDocument document;
	if (!DmxLoadFile(path, document, &error))
		return false;
	document.SetFileName(path);
	return LoadDmxScene(document, scene, error);
}

namespace
{
CDmElement *NewTransform(CDmxDocument &document, const CUtlString &name, const SourceTransform_t &transform)
{
	CDmElement *element = document.CreateElement("DmeTransform", name);
	element->SetValue("position", transform.position);
	element->SetValue("orientation", transform.orientation);
	return element;
}

// Values once each, with per-corner indices into them.
template <typename T> void AddIndexedStream(CDmElement *data, const char *name, const std::vector<T> &perCorner)
{
	struct Hash_t
	{
		size_t operator()(const T &value) const
		{
			size_t hash = 1469598103934665603ull;
			const unsigned char *bytes = (const unsigned char *)&value;
			for (size_t i = 0; i < sizeof(T); ++i)
				hash = (hash ^ bytes[i]) * 1099511628211ull;
			return hash;
		}
	};
	struct Equal_t
	{
		bool operator()(const T &a, const T &b) const { return memcmp(&a, &b, sizeof(T)) == 0; }
	};
	std::unordered_map<T, int32, Hash_t, Equal_t> seen;
	std::vector<T> values;
	std::vector<int32> indices;
	indices.reserve(perCorner.size());
	for (const T &value : perCorner)
	{
		const auto [it, bNew] = seen.emplace(value, (int32)values.size());
		if (bNew)
			values.push_back(value);
		indices.push_back(it->second);
	}
	data->SetArray(name, std::move(values));
	data->SetArray(CUtlString(name) + "Indices", std::move(indices));
}

CDmElement *BuildMesh(CDmxDocument &document, const CSourceMesh &mesh, const std::vector<Matrix4_t> &jointGlobals)
{
	CDmElement *dag = document.CreateElement("DmeDag", mesh.m_Name);
	Matrix4_t local = mesh.m_MeshToModel;
	if (mesh.m_nParentJoint >= 0)
	{
		Matrix4_t parentInverse;
		MatrixInverse(jointGlobals[mesh.m_nParentJoint], parentInverse);
		local = MatrixMultiply(parentInverse, local);
	}
	dag->SetValue("transform", NewTransform(document, mesh.m_Name, TransformFromMatrix(local)));
	dag->SetValue("visible", true);
	CDmElement *shape = document.CreateElement("DmeMesh", mesh.m_Name);
	dag->SetValue("shape", shape);
	CDmElement *data = document.CreateElement("DmeVertexData", "bind");
	shape->SetValue("visible", true);
	shape->SetValue("bindState", data);
	shape->SetValue("currentState", data);
	shape->SetArray("baseStates", std::vector<CDmElement *>{ data });

	std::vector<CUtlString> format = { "position$0" };
	if (mesh.HasNormals())
		format.push_back("normal$0");
	if (mesh.HasUVs())
		format.push_back("texcoord$0");
	int jointCount = 0;
	if (mesh.IsSkinned())
	{
		for (int p = 0; p < mesh.PositionCount(); ++p)
			jointCount = std::max(jointCount, (int)mesh.PositionWeights(p).size());
		jointCount = std::max(jointCount, 1);
		format.push_back("blendweights$0");
		format.push_back("blendindices$0");
	}
	data->SetArray("vertexFormat", format);
	data->SetValue("jointCount", (int32)jointCount);
	data->SetValue("flipVCoordinates", false);
	data->SetArray("position$0", mesh.m_Positions);
	data->SetArray("position$0Indices", mesh.m_CornerPosition);
	if (mesh.HasNormals())
		AddIndexedStream(data, "normal$0", mesh.m_CornerNormals);
	if (mesh.HasUVs())
		AddIndexedStream(data, "texcoord$0", mesh.m_CornerUVs);
	if (jointCount > 0)
	{
		std::vector<float> weights((size_t)mesh.PositionCount() * jointCount, 0.0f);
		std::vector<int32> indices((size_t)mesh.PositionCount() * jointCount, 0);
		for (int p = 0; p < mesh.PositionCount(); ++p)
		{
			const std::span<const SkinWeight_t> pairs = mesh.PositionWeights(p);
			for (size_t k = 0; k < pairs.size(); ++k)
			{
				weights[(size_t)p * jointCount + k] = pairs[k].flWeight;
				indices[(size_t)p * jointCount + k] = pairs[k].nJoint; // the joint list is the scene's joints
			}
		}
		data->SetArray("blendweights$0", std::move(weights));
		data->SetArray("blendindices$0", std::move(indices));
	}

	// A face set per material, in the mesh's material order; polygons without one share a set
	// with an empty material name.
	std::vector<CDmElement *> faceSets;
	for (int32 material = -1; material < (int32)mesh.m_Materials.size(); ++material)
	{
		std::vector<int32> faces;
		for (int p = 0; p < mesh.PolygonCount(); ++p)
		{
			if (mesh.m_PolygonMaterial[p] != material)
				continue;
			for (int32 c = mesh.m_PolygonStart[p]; c < mesh.m_PolygonStart[p + 1]; ++c)
				faces.push_back(c);
			faces.push_back(-1);
		}
		if (faces.empty())
			continue;
		const CUtlString name = material >= 0 ? mesh.m_Materials[material] : CUtlString();
		CDmElement *faceSet = document.CreateElement("DmeFaceSet", name);
		CDmElement *materialElement = document.CreateElement("DmeMaterial", name);
		materialElement->SetValue("mtlName", name);
		faceSet->SetValue("material", materialElement);
		faceSet->SetArray("faces", std::move(faces));
		faceSets.push_back(faceSet);
	}
	shape->SetArray("faceSets", std::move(faceSets));
	return dag;
}
} // namespace

bool BuildDmxScene(const SourceScene_t &scene, const char *modelName, CDmxDocument &document, CUtlString &error)
{
	if (!scene.Validate(error))
		return false;
	document.Clear();
	CDmElement *root = document.CreateElement("DmElement", "root");
	document.SetRoot(root);
	CDmElement *model = document.CreateElement("DmeModel", modelName ? modelName : "model");
	root->SetValue("model", model);
	root->SetValue("skeleton", model);
	model->SetValue("transform", NewTransform(document, model->GetName(), SourceTransform_t()));
	model->SetValue("upAxis", scene.upAxis == 'Z' ? "Z" : "Y");
	model->SetValue("visible", true);

	const int jointCount = (int)scene.joints.size();
	std::vector<CDmElement *> joints(jointCount);
	std::vector<CDmElement *> bind(jointCount);
	std::vector<Matrix4_t> globals(jointCount);
	for (int j = 0; j < jointCount; ++j)
	{
		const SourceJoint_t &joint = scene.joints[j];
		joints[j] = document.CreateElement("DmeJoint", joint.name);
		joints[j]->SetValue("transform", NewTransform(document, joint.name, joint.bindLocal));
		joints[j]->SetValue("visible", true);
		joints[j]->GetArrayForEdit<CDmElement *>("children", true);
		bind[j] = NewTransform(document, joint.name, joint.bindLocal);
		const Matrix4_t local = MatrixFromTransform(joint.bindLocal);
		globals[j] = joint.nParent >= 0 ? MatrixMultiply(globals[joint.nParent], local) : local;
		std::vector<CDmElement *> *siblings =
			joint.nParent >= 0 ? joints[joint.nParent]->GetArrayForEdit<CDmElement *>("children") : model->GetArrayForEdit<CDmElement *>("children", true);
		siblings->push_back(joints[j]);
	}
	model->SetArray("jointList", joints);
	CDmElement *bindState = document.CreateElement("DmeTransformsList", "bind");
	bindState->SetArray("transforms", bind);
	model->SetArray("baseStates", std::vector<CDmElement *>{ bindState });

	for (const CSourceMesh &mesh : scene.meshes)
	{
		CDmElement *dag = BuildMesh(document, mesh, globals);
		std::vector<CDmElement *> *siblings = mesh.m_nParentJoint >= 0 ? joints[mesh.m_nParentJoint]->GetArrayForEdit<CDmElement *>("children")
																	   : model->GetArrayForEdit<CDmElement *>("children", true);
		siblings->push_back(dag);
	}

	if (!scene.animations.empty())
	{
		CDmElement *list = document.CreateElement("DmeAnimationList", "animations");
		root->SetValue("animationList", list);
		std::vector<CDmElement *> clips;
		for (const SourceAnimation_t &animation : scene.animations)
		{
			CDmElement *clip = document.CreateElement("DmeChannelsClip", animation.name);
			const int fps = std::max(1, (int)std::lround(animation.flFps));
			CDmElement *timeFrame = document.CreateElement("DmeTimeFrame", "timeFrame");
			timeFrame->SetValue("start", DmeTime_t(0));
			timeFrame->SetValue("duration", DmeTime_t::FromSeconds(std::max(0, animation.nFrameCount - 1) / (double)fps));
			timeFrame->SetValue("offset", DmeTime_t(0));
			timeFrame->SetValue("scale", 1.0f);
			clip->SetValue("timeFrame", timeFrame);
			clip->SetValue("frameRate", (int32)fps);
			std::vector<DmeTime_t> times(animation.nFrameCount);
			for (int f = 0; f < animation.nFrameCount; ++f)
				times[f] = DmeTime_t::FromSeconds(f / (double)fps);
			std::vector<CDmElement *> channels;
			for (int j = 0; j < jointCount; ++j)
			{
				for (const bool bPosition : { true, false })
				{
					const CUtlString name = scene.joints[j].name + (bPosition ? "_p" : "_o");
					CDmElement *channel = document.CreateElement("DmeChannel", name);
					channel->SetValue("toElement", joints[j]->GetElement("transform"));
					channel->SetValue("toAttribute", bPosition ? "position" : "orientation");
					CDmElement *log = document.CreateElement(bPosition ? "DmeVector3Log" : "DmeQuaternionLog", name);
					CDmElement *layer = document.CreateElement(bPosition ? "DmeVector3LogLayer" : "DmeQuaternionLogLayer", name);
					layer->SetArray("times", times);
					if (bPosition)
					{
						std::vector<Vector> values(animation.nFrameCount);
						for (int f = 0; f < animation.nFrameCount; ++f)
							values[f] = animation.Pose(f, j, jointCount).position;
						layer->SetArray("values", std::move(values));
					}
					else
					{
						std::vector<Quaternion> values(animation.nFrameCount);
						for (int f = 0; f < animation.nFrameCount; ++f)
							values[f] = animation.Pose(f, j, jointCount).orientation;
						layer->SetArray("values", std::move(values));
					}
					log->SetArray("layers", std::vector<CDmElement *>{ layer });
					channel->SetValue("log", log);
					channels.push_back(channel);
				}
			}
			clip->SetArray("channels", std::move(channels));
			clips.push_back(clip);
		}
		list->SetArray("animations", std::move(clips));
	}
	return true;
}

namespace
{
// Merges a position's pairs by joint, sorts them by falling weight, prunes and normalises them;
// returns the number of pairs dropped.
int CleanWeights(std::vector<std::pair<int32, float>> &pairs, int jointCount, int jointListSize)
{
	const size_t given = pairs.size();
	std::vector<std::pair<int32, float>> merged;
	for (const std::pair<int32, float> &pair : pairs)
	{
		const int32 joint = pair.first;
		const float weight = pair.second;
		if (!(weight > DMX_MIN_JOINT_WEIGHT) || joint < 0 || (jointListSize > 0 && joint >= jointListSize))
			continue;
		auto it = std::find_if(merged.begin(), merged.end(), [joint](const std::pair<int32, float> &entry) { return entry.first == joint; });
		if (it != merged.end())
			it->second += weight;
		else
			merged.emplace_back(joint, weight);
	}
	std::stable_sort(merged.begin(), merged.end(), [](const auto &a, const auto &b) { return a.second > b.second; });
	if ((int)merged.size() > jointCount)
		merged.resize(jointCount);
	double sum = 0.0;
	for (const auto &pair : merged)
		sum += pair.second;
	if (sum > 0.0)
	{
		for (auto &pair : merged)
			pair.second = (float)(pair.second / sum);
	}
	const int dropped = (int)(given - merged.size());
	pairs = std::move(merged);
	return dropped;
}
} // namespace

bool PrepareDmxMesh(CDmxDocument &document, DmxMeshPreparation_t *pStats, CUtlString &error)
{
	DmxMeshPreparation_t stats;
	CDmElement *root = document.GetRoot();
	if (!root)
	{
		error = (document.GetFileName().empty() ? CUtlString("<dmx>") : document.GetFileName()) + ": the file has no root element";
		return false;
	}
	stats.nLiftedAttributes = DmxLiftVertexAttributeNames(document);

	CDmElement *model = root->GetElement("model");
	if (!model)
		model = root->GetElement("skeleton");
	const int jointListSize = model ? (int)model->GetArray<CDmElement *>("jointList").size() : 0;

	for (int i = 0; i < document.ElementCount(); ++i)
	{
		CDmElement *element = document.GetElement(i);
		if (element->GetTypeName() == "DmeMaterial")
		{
			CUtlString name = element->HasAttribute("mtlName") ? CUtlString(element->GetString("mtlName")) : element->GetName();
			std::replace(name.begin(), name.end(), '\\', '/');
			if (!V_stristr(name.c_str(), "materials/"))
			{
				name = "materials/" + name + ".zmat";
				++stats.nMaterialsRenamed;
			}
			// Doubled slashes go as well when the name is normalised.
			for (size_t at = name.find("//"); at != CUtlString::npos; at = name.find("//"))
				name.erase(at, 1);
			element->SetValue("mtlName", name);
		}
		else if (element->GetTypeName() == "DmeVertexData")
		{
			const int jointCount = element->GetInt("jointCount");
			std::vector<float> *weights = element->GetArrayForEdit<float>("blendweights$0");
			std::vector<int32> *indices = element->GetArrayForEdit<int32>("blendindices$0");
			if (jointCount <= 0 || !weights || !indices)
				continue;
			const size_t positions = std::min(weights->size(), indices->size()) / jointCount;
			std::vector<std::pair<int32, float>> pairs;
			for (size_t p = 0; p < positions; ++p)
			{
				pairs.clear();
				for (int k = 0; k < jointCount; ++k)
					pairs.emplace_back((*indices)[p * jointCount + k], (*weights)[p * jointCount + k]);
				stats.nDroppedWeights += CleanWeights(pairs, jointCount, jointListSize);
				for (int k = 0; k < jointCount; ++k)
				{
					const bool bUsed = k < (int)pairs.size();
					(*indices)[p * jointCount + k] = bUsed ? pairs[k].first : 0;
					(*weights)[p * jointCount + k] = bUsed ? pairs[k].second : 0.0f;
				}
				++stats.nWeightedPositions;
			}
		}
	}

	if (model)
	{
		const std::vector<CDmElement *> &joints = model->GetArray<CDmElement *>("jointList");
		std::vector<CDmElement *> transforms;
		for (const CDmElement *joint : joints)
		{
			const CDmElement *current = joint ? joint->GetElement("transform") : nullptr;
			CDmElement *copy = document.CreateElement("DmeTransform", joint ? joint->GetName() : CUtlString());
			copy->SetValue("position", current ? current->GetValue<Vector>("position") : Vector());
			copy->SetValue("orientation", current ? current->GetValue<Quaternion>("orientation", Quaternion()) : Quaternion());
			transforms.push_back(copy);
		}
		stats.nBindTransforms = (int)transforms.size();
		CDmElement *bind = nullptr;
		std::vector<CDmElement *> *states = model->GetArrayForEdit<CDmElement *>("baseStates", true);
		if (states)
		{
			for (CDmElement *state : *states)
			{
				if (state && state->GetName() == "bind")
				{
					bind = state;
					break;
				}
			}
			if (!bind)
			{
				bind = document.CreateElement("DmeTransformsList", "bind");
				states->push_back(bind);
			}
			bind->RemoveAttribute("transforms");
			bind->SetArray("transforms", std::move(transforms));
		}
	}
	if (pStats)
		*pStats = stats;
	return true;
}
