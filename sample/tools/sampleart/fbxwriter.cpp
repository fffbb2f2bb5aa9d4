#include "fbxwriter.h"

#include <algorithm>
#include <cinttypes>
#include <cstdio>
#include <array>
#include <map>

namespace sampleart
{
int CSkeleton::Add(const std::string &name, int parent, const Vec3 &globalPosition)
{
	FbxBone_t bone;
	bone.m_Name = name;
	bone.m_nParent = parent;
	bone.m_LocalTranslation = parent >= 0 ? globalPosition - GlobalPosition(parent) : globalPosition;
	m_Bones.push_back(bone);
	return (int)m_Bones.size() - 1;
}

int CSkeleton::Find(const std::string &name) const
{
	for (size_t i = 0; i < m_Bones.size(); ++i)
	{
		if (m_Bones[i].m_Name == name)
			return (int)i;
	}
	return -1;
}

Vec3 CSkeleton::GlobalPosition(int bone) const
{
	Vec3 p;
	for (int b = bone; b >= 0; b = m_Bones[b].m_nParent)
		p += m_Bones[b].m_LocalTranslation;
	return p;
}

CSkeleton PruneSkeleton(const CSkeleton &skeleton, std::vector<CArtMesh> &meshes, const std::set<std::string> &keep)
{
	std::vector<bool> wanted(skeleton.Count(), false);
	for (const CArtMesh &mesh : meshes)
	{
		for (const auto &weights : mesh.m_Weights)
		{
			for (const BoneWeight_t &w : weights)
				wanted[w.nBone] = true;
		}
	}
	for (int b = 0; b < skeleton.Count(); ++b)
		wanted[b] = wanted[b] || keep.count(skeleton.m_Bones[b].m_Name) > 0;
	for (int b = skeleton.Count() - 1; b >= 0; --b)
	{
		for (int p = skeleton.m_Bones[b].m_nParent; wanted[b] && p >= 0; p = skeleton.m_Bones[p].m_nParent)
			wanted[p] = true;
	}
	CSkeleton out;
	std::vector<int> map(skeleton.Count(), -1);
	for (int b = 0; b < skeleton.Count(); ++b)
	{
		if (!wanted[b])
			continue;
		const int parent = skeleton.m_Bones[b].m_nParent;
		map[b] = out.Add(skeleton.m_Bones[b].m_Name, parent >= 0 ? map[parent] : -1, skeleton.GlobalPosition(b));
	}
	for (CArtMesh &mesh : meshes)
	{
		for (auto &weights : mesh.m_Weights)
		{
			for (BoneWeight_t &w : weights)
				w.nBone = map[w.nBone];
		}
	}
	return out;
}

std::string FormatNumber(double value, int decimals)
{
	char text[64];
	snprintf(text, sizeof(text), "%.*f", decimals, value);
	std::string s = text;
	if (s.find('.') != std::string::npos)
	{
		while (!s.empty() && s.back() == '0')
			s.pop_back();
		if (!s.empty() && s.back() == '.')
			s.pop_back();
	}
	if (s == "-0")
		s = "0";
	return s;
}

int FbxTrackAxes(const FbxTrack_t &track)
{
	// Translations keep every axis; rotations and scales leave out an axis that stays at its
	// default (0 and 1) as the file would print it.
	if (track.m_cKind == 'T')
		return 7;
	const double rest = track.m_cKind == 'S' ? 1.0 : 0.0;
	int axes = 0;
	for (const Vec3 &v : track.m_Values)
	{
		for (int axis = 0; axis < 3; ++axis)
		{
			if (FormatNumber(v[axis], 3) != FormatNumber(rest, 3))
				axes |= 1 << axis;
		}
	}
	return axes;
}

namespace
{
class CFbxText
{
public:
	std::string m_Text;
	int64_t m_nNextId = 1000000;

	int64_t NewId() { return m_nNextId++; }

	void Line(int indent, const std::string &text)
	{
		m_Text.append((size_t)indent, '\t');
		m_Text += text;
		m_Text += '\n';
	}
	void Numbers(int indent, const char *name, const std::vector<double> &values, int decimals)
	{
		std::string line = std::string(name) + ": *" + std::to_string(values.size()) + " {";
		Line(indent, line);
		std::string a = "a: ";
		for (size_t i = 0; i < values.size(); ++i)
		{
			if (i)
				a += ',';
			a += FormatNumber(values[i], decimals);
		}
		Line(indent + 1, a);
		Line(indent, "}");
	}
	void Integers(int indent, const char *name, const std::vector<int64_t> &values)
	{
		Line(indent, std::string(name) + ": *" + std::to_string(values.size()) + " {");
		std::string a = "a: ";
		for (size_t i = 0; i < values.size(); ++i)
		{
			if (i)
				a += ',';
			a += std::to_string(values[i]);
		}
		Line(indent + 1, a);
		Line(indent, "}");
	}
	void Matrix(int indent, const char *name, const Mat4 &m)
	{
		std::vector<double> values;
		for (int c = 0; c < 4; ++c)
		{
			for (int r = 0; r < 4; ++r)
				values.push_back(m.m[c][r]);
		}
		Numbers(indent, name, values, 6);
	}
};

std::string Quoted(const std::string &text) { return "\"" + text + "\""; }

std::string Vec3Text(const Vec3 &v, int decimals)
{
	return FormatNumber(v.x, decimals) + "," + FormatNumber(v.y, decimals) + "," + FormatNumber(v.z, decimals);
}

int64_t FrameTime(int frame, int rate) { return (int64_t)frame * kFbxTimeUnitsPerSecond / rate; }
} // namespace

std::string WriteAsciiFbx(const FbxScene_t &scene)
{
	CFbxText out;
	out.m_Text.reserve(1 << 20);
	const CSkeleton &skeleton = scene.m_Skeleton;
	int stopFrame = 0, frameRate = 30;
	for (const FbxAnimation_t &anim : scene.m_Animations)
	{
		stopFrame = std::max(stopFrame, anim.m_nFrames - 1);
		frameRate = anim.m_nFrameRate;
	}

	out.Line(0, "; FBX 7.4.0 project file");
	out.Line(0, "; " + scene.m_Creator);
	out.Line(0, "; ----------------------------------------------------");
	out.Line(0, "");
	out.Line(0, "FBXHeaderExtension:  {");
	out.Line(1, "FBXHeaderVersion: 1003");
	out.Line(1, "FBXVersion: 7400");
	out.Line(1, "Creator: " + Quoted(scene.m_Creator));
	out.Line(0, "}");
	out.Line(0, "GlobalSettings:  {");
	out.Line(1, "Version: 1000");
	out.Line(1, "Properties70:  {");
	out.Line(2, "P: \"UpAxis\", \"int\", \"Integer\", \"\",2");
	out.Line(2, "P: \"UpAxisSign\", \"int\", \"Integer\", \"\",1");
	out.Line(2, "P: \"FrontAxis\", \"int\", \"Integer\", \"\",1");
	out.Line(2, "P: \"FrontAxisSign\", \"int\", \"Integer\", \"\",-1");
	out.Line(2, "P: \"CoordAxis\", \"int\", \"Integer\", \"\",0");
	out.Line(2, "P: \"CoordAxisSign\", \"int\", \"Integer\", \"\",1");
	out.Line(2, "P: \"OriginalUpAxis\", \"int\", \"Integer\", \"\",2");
	out.Line(2, "P: \"OriginalUpAxisSign\", \"int\", \"Integer\", \"\",1");
	out.Line(2, "P: \"UnitScaleFactor\", \"double\", \"Number\", \"\",1");
	out.Line(2, "P: \"OriginalUnitScaleFactor\", \"double\", \"Number\", \"\",1");
	out.Line(2, "P: \"TimeMode\", \"enum\", \"\", \"\"," + std::string(frameRate == 30 ? "6" : "14"));
	if (frameRate != 30)
		out.Line(2, "P: \"CustomFrameRate\", \"double\", \"Number\", \"\"," + std::to_string(frameRate));
	out.Line(2, "P: \"TimeSpanStart\", \"KTime\", \"Time\", \"\",0");
	out.Line(2, "P: \"TimeSpanStop\", \"KTime\", \"Time\", \"\"," + std::to_string(FrameTime(stopFrame, frameRate)));
	out.Line(1, "}");
	out.Line(0, "}");

	// Ids first, so that definitions can count.
	std::vector<int64_t> boneModel(skeleton.Count()), boneAttribute(skeleton.Count());
	for (int b = 0; b < skeleton.Count(); ++b)
	{
		boneModel[b] = out.NewId();
		boneAttribute[b] = out.NewId();
	}
	std::vector<int64_t> materialIds;
	for (size_t i = 0; i < scene.m_Materials.size(); ++i)
		materialIds.push_back(out.NewId());
	auto materialIndex = [&](const std::string &name)
	{
		for (size_t i = 0; i < scene.m_Materials.size(); ++i)
		{
			if (scene.m_Materials[i].m_Name == name)
				return (int)i;
		}
		return -1;
	};

	int deformerCount = 0, curveNodeCount = 0, curveCount = 0;
	for (const CArtMesh &mesh : scene.m_Meshes)
	{
		if (!mesh.IsSkinned())
			continue;
		std::vector<bool> used(skeleton.Count());
		for (const auto &weights : mesh.m_Weights)
		{
			for (const BoneWeight_t &w : weights)
				used[w.nBone] = true;
		}
		deformerCount += 1 + (int)std::count(used.begin(), used.end(), true);
	}
	for (const FbxAnimation_t &anim : scene.m_Animations)
	{
		for (const FbxTrack_t &track : anim.m_Tracks)
		{
			const int axes = FbxTrackAxes(track);
			curveNodeCount += axes ? 1 : 0;
			curveCount += (axes & 1) + ((axes >> 1) & 1) + ((axes >> 2) & 1);
		}
	}
	const bool hasPose = skeleton.Count() > 0;
	const int modelCount = skeleton.Count() + (int)scene.m_Meshes.size();

	out.Line(0, "Definitions:  {");
	out.Line(1, "Version: 100");
	struct TypeCount_t
	{
		const char *pszType;
		int nCount;
	};
	const TypeCount_t types[] = { { "GlobalSettings", 1 }, { "Model", modelCount }, { "NodeAttribute", skeleton.Count() },
		{ "Geometry", (int)scene.m_Meshes.size() }, { "Material", (int)scene.m_Materials.size() }, { "Deformer", deformerCount },
		{ "Pose", hasPose ? 1 : 0 }, { "AnimationStack", (int)scene.m_Animations.size() },
		{ "AnimationLayer", (int)scene.m_Animations.size() }, { "AnimationCurveNode", curveNodeCount },
		{ "AnimationCurve", curveCount } };
	int total = 0;
	for (const TypeCount_t &t : types)
		total += t.nCount;
	out.Line(1, "Count: " + std::to_string(total));
	for (const TypeCount_t &t : types)
	{
		if (!t.nCount)
			continue;
		out.Line(1, "ObjectType: " + Quoted(t.pszType) + " {");
		out.Line(2, "Count: " + std::to_string(t.nCount));
		out.Line(1, "}");
	}
	out.Line(0, "}");

	std::vector<std::string> connections;
	auto connectOO = [&](int64_t child, int64_t parent) { connections.push_back("C: \"OO\"," + std::to_string(child) + "," + std::to_string(parent)); };
	auto connectOP = [&](int64_t child, int64_t parent, const char *property)
	{ connections.push_back("C: \"OP\"," + std::to_string(child) + "," + std::to_string(parent) + ", " + Quoted(property)); };

	out.Line(0, "Objects:  {");

	// The skeleton.
	for (int b = 0; b < skeleton.Count(); ++b)
	{
		const FbxBone_t &bone = skeleton.m_Bones[b];
		out.Line(1, "NodeAttribute: " + std::to_string(boneAttribute[b]) + ", \"NodeAttribute::\", \"LimbNode\" {");
		out.Line(2, "TypeFlags: \"Skeleton\"");
		out.Line(1, "}");
		out.Line(1, "Model: " + std::to_string(boneModel[b]) + ", " + Quoted("Model::" + bone.m_Name) + ", \"LimbNode\" {");
		out.Line(2, "Version: 232");
		out.Line(2, "Properties70:  {");
		// Bones carry no rotation and no scale at bind time: those properties keep their
		// defaults (0, 0, 0 and 1, 1, 1).
		out.Line(3, "P: \"Lcl Translation\", \"Lcl Translation\", \"\", \"A\"," + Vec3Text(bone.m_LocalTranslation, 4));
		out.Line(2, "}");
		out.Line(2, "Shading: Y");
		out.Line(2, "Culling: \"CullingOff\"");
		out.Line(1, "}");
		connectOO(boneAttribute[b], boneModel[b]);
		connectOO(boneModel[b], bone.m_nParent >= 0 ? boneModel[bone.m_nParent] : 0);
	}

	// Materials.
	for (size_t i = 0; i < scene.m_Materials.size(); ++i)
	{
		const FbxMaterial_t &material = scene.m_Materials[i];
		out.Line(1, "Material: " + std::to_string(materialIds[i]) + ", " + Quoted("Material::" + material.m_Name) + ", \"\" {");
		out.Line(2, "Version: 102");
		out.Line(2, "ShadingModel: \"phong\"");
		out.Line(2, "MultiLayer: 0");
		out.Line(2, "Properties70:  {");
		out.Line(3, "P: \"DiffuseColor\", \"Color\", \"\", \"A\"," + Vec3Text(material.m_Diffuse, 4));
		out.Line(3, "P: \"DiffuseFactor\", \"Number\", \"\", \"A\",1");
		out.Line(2, "}");
		out.Line(1, "}");
	}

	// Meshes.
	std::vector<int64_t> meshModels;
	for (const CArtMesh &mesh : scene.m_Meshes)
	{
		const int64_t geometryId = out.NewId(), modelId = out.NewId();
		meshModels.push_back(modelId);
		out.Line(1, "Geometry: " + std::to_string(geometryId) + ", " + Quoted("Geometry::" + mesh.m_Name) + ", \"Mesh\" {");
		std::vector<double> points;
		for (const Vec3 &p : mesh.m_Points)
		{
			points.push_back(p.x);
			points.push_back(p.y);
			points.push_back(p.z);
		}
		out.Numbers(2, "Vertices", points, 2);
		std::vector<int64_t> polygons;
		std::vector<double> normals, uvs;
		std::vector<int64_t> normalIndex, uvIndex;
		// Normals and texture coordinates are kept once each, rounded as they are printed, and
		// indexed by polygon vertex.
		std::map<std::array<int64_t, 3>, int64_t> normalSlots;
		std::map<std::array<int64_t, 3>, int64_t> uvSlots;
		for (const Face_t &f : mesh.m_Faces)
		{
			for (int k = 0; k < f.nCorners; ++k)
			{
				const Corner_t &c = f.corners[k];
				// The last corner of a polygon is written as -(index + 1).
				polygons.push_back(k == f.nCorners - 1 ? -c.nPoint - 1 : c.nPoint);
				const std::array<int64_t, 3> nk = { std::llround(c.normal.x * 1e3), std::llround(c.normal.y * 1e3), std::llround(c.normal.z * 1e3) };
				auto n = normalSlots.find(nk);
				if (n == normalSlots.end())
				{
					n = normalSlots.emplace(nk, (int64_t)normalSlots.size()).first;
					for (int64_t v : nk)
						normals.push_back(v / 1e3);
				}
				normalIndex.push_back(n->second);
				const std::array<int64_t, 3> uk = { std::llround(c.uv.x * 1e4), std::llround(c.uv.y * 1e4), 0 };
				auto u = uvSlots.find(uk);
				if (u == uvSlots.end())
				{
					u = uvSlots.emplace(uk, (int64_t)uvSlots.size()).first;
					uvs.push_back(uk[0] / 1e4);
					uvs.push_back(uk[1] / 1e4);
				}
				uvIndex.push_back(u->second);
			}
		}
		out.Integers(2, "PolygonVertexIndex", polygons);
		out.Line(2, "GeometryVersion: 124");
		out.Line(2, "LayerElementNormal: 0 {");
		out.Line(3, "Version: 101");
		out.Line(3, "Name: \"\"");
		out.Line(3, "MappingInformationType: \"ByPolygonVertex\"");
		out.Line(3, "ReferenceInformationType: \"IndexToDirect\"");
		out.Numbers(3, "Normals", normals, 3);
		out.Integers(3, "NormalsIndex", normalIndex);
		out.Line(2, "}");
		out.Line(2, "LayerElementUV: 0 {");
		out.Line(3, "Version: 101");
		out.Line(3, "Name: \"map1\"");
		out.Line(3, "MappingInformationType: \"ByPolygonVertex\"");
		out.Line(3, "ReferenceInformationType: \"IndexToDirect\"");
		out.Numbers(3, "UV", uvs, 4);
		out.Integers(3, "UVIndex", uvIndex);
		out.Line(2, "}");
		// The mesh's own materials, in the order they are connected to its model.
		std::vector<int> connected;
		for (const std::string &name : mesh.m_Materials)
			connected.push_back(materialIndex(name));
		const bool allSame = mesh.m_Materials.size() <= 1;
		out.Line(2, "LayerElementMaterial: 0 {");
		out.Line(3, "Version: 101");
		out.Line(3, "Name: \"\"");
		out.Line(3, std::string("MappingInformationType: ") + (allSame ? "\"AllSame\"" : "\"ByPolygon\""));
		out.Line(3, "ReferenceInformationType: \"IndexToDirect\"");
		std::vector<int64_t> materials;
		if (allSame)
			materials.push_back(0);
		else
		{
			for (const Face_t &f : mesh.m_Faces)
				materials.push_back(f.nMaterial);
		}
		out.Integers(3, "Materials", materials);
		out.Line(2, "}");
		out.Line(2, "Layer: 0 {");
		out.Line(3, "Version: 100");
		for (const char *element : { "LayerElementNormal", "LayerElementMaterial", "LayerElementUV" })
		{
			out.Line(3, "LayerElement:  {");
			out.Line(4, std::string("Type: ") + Quoted(element));
			out.Line(4, "TypedIndex: 0");
			out.Line(3, "}");
		}
		out.Line(2, "}");
		out.Line(1, "}");

		out.Line(1, "Model: " + std::to_string(modelId) + ", " + Quoted("Model::" + mesh.m_Name) + ", \"Mesh\" {");
		out.Line(2, "Version: 232");
		out.Line(2, "Properties70:  {");
		out.Line(3, "P: \"Lcl Translation\", \"Lcl Translation\", \"\", \"A\",0,0,0");
		out.Line(3, "P: \"Lcl Rotation\", \"Lcl Rotation\", \"\", \"A\",0,0,0");
		out.Line(3, "P: \"Lcl Scaling\", \"Lcl Scaling\", \"\", \"A\",1,1,1");
		out.Line(2, "}");
		out.Line(2, "Shading: T");
		out.Line(2, "Culling: \"CullingOff\"");
		out.Line(1, "}");
		connectOO(modelId, 0);
		connectOO(geometryId, modelId);
		for (int index : connected)
		{
			if (index >= 0)
				connectOO(materialIds[index], modelId);
		}

		if (!mesh.IsSkinned())
			continue;
		const int64_t skinId = out.NewId();
		out.Line(1, "Deformer: " + std::to_string(skinId) + ", " + Quoted("Deformer::" + mesh.m_Name + "_skin") + ", \"Skin\" {");
		out.Line(2, "Version: 101");
		out.Line(2, "Link_DeformAcuracy: 50");
		out.Line(1, "}");
		connectOO(skinId, geometryId);
		for (int b = 0; b < skeleton.Count(); ++b)
		{
			std::vector<int64_t> indexes;
			std::vector<double> weights;
			for (size_t p = 0; p < mesh.m_Weights.size(); ++p)
			{
				for (const BoneWeight_t &w : mesh.m_Weights[p])
				{
					if (w.nBone == b)
					{
						indexes.push_back((int64_t)p);
						weights.push_back(w.flWeight);
					}
				}
			}
			if (indexes.empty())
				continue;
			const int64_t clusterId = out.NewId();
			out.Line(1, "Deformer: " + std::to_string(clusterId) + ", " + Quoted("SubDeformer::" + skeleton.m_Bones[b].m_Name) +
				", \"Cluster\" {");
			out.Line(2, "Version: 100");
			out.Line(2, "UserData: \"\", \"\"");
			out.Integers(2, "Indexes", indexes);
			out.Numbers(2, "Weights", weights, 3);
			out.Matrix(2, "Transform", Mat4::Translation(-skeleton.GlobalPosition(b)));
			out.Matrix(2, "TransformLink", Mat4::Translation(skeleton.GlobalPosition(b)));
			out.Line(1, "}");
			connectOO(clusterId, skinId);
			connectOO(boneModel[b], clusterId);
		}
	}

	// The bind pose: the world matrix of every node.
	if (hasPose)
	{
		const int64_t poseId = out.NewId();
		out.Line(1, "Pose: " + std::to_string(poseId) + ", \"Pose::BindPose\", \"BindPose\" {");
		out.Line(2, "Type: \"BindPose\"");
		out.Line(2, "Version: 100");
		out.Line(2, "NbPoseNodes: " + std::to_string(skeleton.Count() + meshModels.size()));
		for (int64_t model : meshModels)
		{
			out.Line(2, "PoseNode:  {");
			out.Line(3, "Node: " + std::to_string(model));
			out.Matrix(3, "Matrix", Mat4());
			out.Line(2, "}");
		}
		for (int b = 0; b < skeleton.Count(); ++b)
		{
			out.Line(2, "PoseNode:  {");
			out.Line(3, "Node: " + std::to_string(boneModel[b]));
			out.Matrix(3, "Matrix", Mat4::Translation(skeleton.GlobalPosition(b)));
			out.Line(2, "}");
		}
		out.Line(1, "}");
	}

	// Animations: a stack with one layer each; a curve node per track with its three curves.
	for (const FbxAnimation_t &anim : scene.m_Animations)
	{
		const int64_t stackId = out.NewId(), layerId = out.NewId();
		const std::string stop = std::to_string(FrameTime(std::max(anim.m_nFrames - 1, 0), anim.m_nFrameRate));
		out.Line(1, "AnimationStack: " + std::to_string(stackId) + ", " + Quoted("AnimStack::" + anim.m_Name) + ", \"\" {");
		out.Line(2, "Properties70:  {");
		out.Line(3, "P: \"LocalStart\", \"KTime\", \"Time\", \"\",0");
		out.Line(3, "P: \"LocalStop\", \"KTime\", \"Time\", \"\"," + stop);
		out.Line(3, "P: \"ReferenceStart\", \"KTime\", \"Time\", \"\",0");
		out.Line(3, "P: \"ReferenceStop\", \"KTime\", \"Time\", \"\"," + stop);
		out.Line(2, "}");
		out.Line(1, "}");
		out.Line(1, "AnimationLayer: " + std::to_string(layerId) + ", \"AnimLayer::BaseLayer\", \"\" {");
		out.Line(1, "}");
		connectOO(layerId, stackId);
		std::vector<int64_t> times;
		for (int f = 0; f < anim.m_nFrames; ++f)
			times.push_back(FrameTime(f, anim.m_nFrameRate));
		for (const FbxTrack_t &track : anim.m_Tracks)
		{
			const int64_t nodeId = out.NewId();
			const char *kind = track.m_cKind == 'T' ? "T" : (track.m_cKind == 'S' ? "S" : "R");
			const char *property = track.m_cKind == 'T' ? "Lcl Translation" : (track.m_cKind == 'S' ? "Lcl Scaling" : "Lcl Rotation");
			const Vec3 first = track.m_Values.empty() ? Vec3{} : track.m_Values[0];
			const int axes = FbxTrackAxes(track);
			if (!axes)
				continue;
			out.Line(1, "AnimationCurveNode: " + std::to_string(nodeId) + ", " + Quoted(std::string("AnimCurveNode::") + kind) + ", \"\" {");
			out.Line(2, "Properties70:  {");
			out.Line(3, "P: \"d|X\", \"Number\", \"\", \"A\"," + FormatNumber(first.x, 4));
			out.Line(3, "P: \"d|Y\", \"Number\", \"\", \"A\"," + FormatNumber(first.y, 4));
			out.Line(3, "P: \"d|Z\", \"Number\", \"\", \"A\"," + FormatNumber(first.z, 4));
			out.Line(2, "}");
			out.Line(1, "}");
			connectOO(nodeId, layerId);
			connectOP(nodeId, boneModel[track.m_nBone], property);
			for (int axis = 0; axis < 3; ++axis)
			{
				if (!(axes & (1 << axis)))
					continue;
				const int64_t curveId = out.NewId();
				std::vector<double> values;
				for (const Vec3 &v : track.m_Values)
					values.push_back(v[axis]);
				out.Line(1, "AnimationCurve: " + std::to_string(curveId) + ", \"AnimCurve::\", \"\" {");
				out.Line(2, "Default: " + FormatNumber(values.empty() ? 0.0 : values[0], 4));
				out.Line(2, "KeyVer: 4009");
				out.Integers(2, "KeyTime", times);
				out.Numbers(2, "KeyValueFloat", values, 3);
				// Every key linear.
				out.Integers(2, "KeyAttrFlags", { 260 });
				out.Numbers(2, "KeyAttrDataFloat", { 0, 0, 0, 0 }, 0);
				out.Integers(2, "KeyAttrRefCount", { (int64_t)times.size() });
				out.Line(1, "}");
				connectOP(curveId, nodeId, axis == 0 ? "d|X" : (axis == 1 ? "d|Y" : "d|Z"));
			}
		}
	}
	out.Line(0, "}");

	out.Line(0, "Connections:  {");
	for (const std::string &c : connections)
		out.Line(1, c);
	out.Line(0, "}");

	if (!scene.m_Animations.empty())
	{
		out.Line(0, "Takes:  {");
		out.Line(1, "Current: " + Quoted(scene.m_Animations[0].m_Name));
		for (const FbxAnimation_t &anim : scene.m_Animations)
		{
			const std::string stop = std::to_string(FrameTime(std::max(anim.m_nFrames - 1, 0), anim.m_nFrameRate));
			out.Line(1, "Take: " + Quoted(anim.m_Name) + " {");
			out.Line(2, "FileName: " + Quoted(anim.m_Name + ".tak"));
			out.Line(2, "LocalTime: 0," + stop);
			out.Line(2, "ReferenceTime: 0," + stop);
			out.Line(1, "}");
		}
		out.Line(0, "}");
	}
	return out.m_Text;
}
} // namespace sampleart
