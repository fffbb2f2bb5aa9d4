// Writes ASCII FBX 7.4 text for tests and benchmarks (the compiler's, the import run's): a
// skeleton of limb nodes with rest transforms, meshes with polygons of any size, several
// materials per mesh (by polygon), UVs per corner, smooth (per control point) or flat (per
// corner) normals, skins (clusters whose links are the joints' bind matrices) and animation
// stacks with a key per frame for every joint's translation and rotation. It uses meshio's
// matrix helpers, so a target that includes it links mintyard_meshio.
#pragma once

#include <cmath>
#include <cstdio>
#include <string>
#include <vector>

#include "core/mathtypes.h"
#include "meshio/meshmath.h"

struct FbxWriterJoint_t
{
	std::string name;
	int parent = -1;	   // an earlier joint, or -1
	Vector translation;	   // rest, relative to the parent
	Vector rotation;	   // rest, Euler XYZ in degrees
};

struct FbxWriterMesh_t
{
	std::string name = "mesh";
	std::vector<Vector> positions;
	std::vector<std::vector<int>> polygons;
	std::vector<std::string> materials = { "material" };
	std::vector<int> polygonMaterial;			// one per polygon (empty: all material 0)
	std::vector<Vector2D> cornerUVs;			// one per corner, in polygon order (empty: none)
	bool bSmoothNormals = false;				// per control point (otherwise each polygon's plane per corner)
	std::vector<std::vector<std::pair<int, double>>> weights; // per control point: (joint, weight); empty: no skin
};

struct FbxWriterAnimation_t
{
	std::string name = "Take 001";
	int frameCount = 0;
	// Per frame and joint: translation and Euler XYZ rotation in degrees (frame * joints + joint).
	std::vector<Vector> translations;
	std::vector<Vector> rotations;
};

struct FbxWriterScene_t
{
	std::vector<FbxWriterJoint_t> joints;
	std::vector<FbxWriterMesh_t> meshes;
	std::vector<FbxWriterAnimation_t> animations;
	double fps = 30.0;
	int upAxis = 1; // 0 X, 1 Y, 2 Z
};

namespace fbxwriter
{
inline void Number(std::string &out, double value)
{
	char text[40];
	if (value == std::floor(value) && std::fabs(value) < 1e15)
		snprintf(text, sizeof(text), "%.0f", value);
	else
		snprintf(text, sizeof(text), "%.9g", value);
	out += text;
}

template <typename T> void Array(std::string &out, const char *indent, const char *name, const std::vector<T> &values)
{
	out += indent;
	out += name;
	out += ": *" + std::to_string(values.size()) + " {\n" + indent + "\ta: ";
	for (size_t i = 0; i < values.size(); ++i)
	{
		if (i)
			out += (i % 32) ? "," : ",\n\t\t\t\t";
		Number(out, (double)values[i]);
	}
	out += "\n" + std::string(indent) + "}\n";
}

inline Matrix4_t JointLocal(const FbxWriterJoint_t &joint)
{
	return MatrixMultiply(MatrixTranslation(joint.translation.x, joint.translation.y, joint.translation.z),
		MatrixFromEulerDegrees(joint.rotation, EULER_XYZ));
}

// The FBX stores a matrix column after column.
inline std::vector<double> MatrixArray(const Matrix4_t &m)
{
	std::vector<double> out;
	for (int c = 0; c < 4; ++c)
	{
		for (int r = 0; r < 4; ++r)
			out.push_back(m.m[r][c]);
	}
	return out;
}

inline int TimeMode(double fps)
{
	if (fps == 30.0)
		return 6;
	if (fps == 24.0)
		return 11;
	if (fps == 60.0)
		return 3;
	if (fps == 25.0)
		return 10;
	return 14; // custom
}

inline std::string Vec(const Vector &v)
{
	std::string out;
	Number(out, v.x);
	out += ",";
	Number(out, v.y);
	out += ",";
	Number(out, v.z);
	return out;
}
} // namespace fbxwriter

inline std::string WriteFbxScene(const FbxWriterScene_t &scene)
{
	using namespace fbxwriter;
	const long long ticksPerSecond = 46186158000LL;
	std::string out = "; FBX 7.4.0 project file\n; written by the resource compiler's tests\n\n"
					  "FBXHeaderExtension:  {\n\tFBXHeaderVersion: 1003\n\tFBXVersion: 7400\n}\n"
					  "GlobalSettings:  {\n\tVersion: 1000\n\tProperties70:  {\n";
	out += "\t\tP: \"UpAxis\", \"int\", \"Integer\", \"\"," + std::to_string(scene.upAxis) + "\n";
	out += "\t\tP: \"UpAxisSign\", \"int\", \"Integer\", \"\",1\n";
	out += "\t\tP: \"UnitScaleFactor\", \"double\", \"Number\", \"\",1\n";
	out += "\t\tP: \"TimeMode\", \"enum\", \"\", \"\"," + std::to_string(TimeMode(scene.fps)) + "\n";
	out += "\t\tP: \"CustomFrameRate\", \"double\", \"Number\", \"\",";
	Number(out, TimeMode(scene.fps) == 14 ? scene.fps : -1.0);
	out += "\n\t}\n}\n\nObjects:  {\n";
	std::string connections = "Connections:  {\n";
	long long nextId = 100000;

	// Joints and their bind matrices (rest pose).
	std::vector<long long> jointIds;
	std::vector<Matrix4_t> jointGlobal;
	for (size_t j = 0; j < scene.joints.size(); ++j)
	{
		const FbxWriterJoint_t &joint = scene.joints[j];
		const long long id = nextId++;
		jointIds.push_back(id);
		jointGlobal.push_back(joint.parent >= 0 ? MatrixMultiply(jointGlobal[(size_t)joint.parent], JointLocal(joint)) : JointLocal(joint));
		out += "\tModel: " + std::to_string(id) + ", \"Model::" + joint.name + "\", \"LimbNode\" {\n\t\tVersion: 232\n\t\tProperties70:  {\n";
		out += "\t\t\tP: \"Lcl Translation\", \"Lcl Translation\", \"\", \"A\"," + Vec(joint.translation) + "\n";
		out += "\t\t\tP: \"Lcl Rotation\", \"Lcl Rotation\", \"\", \"A\"," + Vec(joint.rotation) + "\n";
		out += "\t\t}\n\t}\n";
		connections += "\tC: \"OO\"," + std::to_string(id) + "," + (joint.parent >= 0 ? std::to_string(jointIds[(size_t)joint.parent]) : std::string("0")) + "\n";
	}

	for (const FbxWriterMesh_t &mesh : scene.meshes)
	{
		const long long geometryId = nextId++, modelId = nextId++;
		std::vector<double> vertices;
		for (const Vector &p : mesh.positions)
		{
			vertices.push_back(p.x);
			vertices.push_back(p.y);
			vertices.push_back(p.z);
		}
		std::vector<long long> indices;
		std::vector<double> normals;
		std::vector<Vector> smooth(mesh.positions.size());
		for (const std::vector<int> &polygon : mesh.polygons)
		{
			double n[3] = { 0, 0, 0 };
			for (size_t i = 0; i < polygon.size(); ++i)
			{
				const Vector &a = mesh.positions[(size_t)polygon[i]];
				const Vector &b = mesh.positions[(size_t)polygon[(i + 1) % polygon.size()]];
				n[0] += ((double)a.y - b.y) * ((double)a.z + b.z);
				n[1] += ((double)a.z - b.z) * ((double)a.x + b.x);
				n[2] += ((double)a.x - b.x) * ((double)a.y + b.y);
			}
			const double length = std::sqrt(n[0] * n[0] + n[1] * n[1] + n[2] * n[2]);
			for (size_t i = 0; i < polygon.size(); ++i)
			{
				indices.push_back(i + 1 == polygon.size() ? ~(long long)polygon[i] : polygon[i]);
				Vector &s = smooth[(size_t)polygon[i]];
				s = Vector(s.x + (float)n[0], s.y + (float)n[1], s.z + (float)n[2]);
				for (int k = 0; k < 3; ++k)
					normals.push_back(length > 0 ? n[k] / length : 0.0);
			}
		}
		if (mesh.bSmoothNormals)
		{
			normals.clear();
			for (const Vector &s : smooth)
			{
				const double length = std::sqrt((double)s.x * s.x + (double)s.y * s.y + (double)s.z * s.z);
				normals.push_back(length > 0 ? s.x / length : 0.0);
				normals.push_back(length > 0 ? s.y / length : 0.0);
				normals.push_back(length > 0 ? s.z / length : 1.0);
			}
		}
		out += "\tGeometry: " + std::to_string(geometryId) + ", \"Geometry::" + mesh.name + "\", \"Mesh\" {\n";
		Array(out, "\t\t", "Vertices", vertices);
		Array(out, "\t\t", "PolygonVertexIndex", indices);
		out += "\t\tGeometryVersion: 124\n\t\tLayerElementNormal: 0 {\n\t\t\tVersion: 101\n\t\t\tName: \"\"\n";
		out += mesh.bSmoothNormals ? "\t\t\tMappingInformationType: \"ByVertice\"\n" : "\t\t\tMappingInformationType: \"ByPolygonVertex\"\n";
		out += "\t\t\tReferenceInformationType: \"Direct\"\n";
		Array(out, "\t\t\t", "Normals", normals);
		out += "\t\t}\n";
		if (!mesh.cornerUVs.empty())
		{
			std::vector<double> uvs;
			std::vector<int> uvIndex;
			for (size_t i = 0; i < mesh.cornerUVs.size(); ++i)
			{
				uvs.push_back(mesh.cornerUVs[i].x);
				uvs.push_back(mesh.cornerUVs[i].y);
				uvIndex.push_back((int)i);
			}
			out += "\t\tLayerElementUV: 0 {\n\t\t\tVersion: 101\n\t\t\tName: \"map1\"\n"
				   "\t\t\tMappingInformationType: \"ByPolygonVertex\"\n\t\t\tReferenceInformationType: \"IndexToDirect\"\n";
			Array(out, "\t\t\t", "UV", uvs);
			Array(out, "\t\t\t", "UVIndex", uvIndex);
			out += "\t\t}\n";
		}
		std::vector<int> materialIndex = mesh.polygonMaterial;
		if (materialIndex.empty())
			materialIndex.assign(mesh.polygons.size(), 0);
		out += "\t\tLayerElementMaterial: 0 {\n\t\t\tVersion: 101\n\t\t\tName: \"\"\n\t\t\tMappingInformationType: \"ByPolygon\"\n"
			   "\t\t\tReferenceInformationType: \"IndexToDirect\"\n";
		Array(out, "\t\t\t", "Materials", materialIndex);
		out += "\t\t}\n\t\tLayer: 0 {\n\t\t\tVersion: 100\n"
			   "\t\t\tLayerElement:  {\n\t\t\t\tType: \"LayerElementNormal\"\n\t\t\t\tTypedIndex: 0\n\t\t\t}\n";
		if (!mesh.cornerUVs.empty())
			out += "\t\t\tLayerElement:  {\n\t\t\t\tType: \"LayerElementUV\"\n\t\t\t\tTypedIndex: 0\n\t\t\t}\n";
		out += "\t\t\tLayerElement:  {\n\t\t\t\tType: \"LayerElementMaterial\"\n\t\t\t\tTypedIndex: 0\n\t\t\t}\n\t\t}\n\t}\n";
		out += "\tModel: " + std::to_string(modelId) + ", \"Model::" + mesh.name + "\", \"Mesh\" {\n\t\tVersion: 232\n\t}\n";
		connections += "\tC: \"OO\"," + std::to_string(modelId) + ",0\n";
		connections += "\tC: \"OO\"," + std::to_string(geometryId) + "," + std::to_string(modelId) + "\n";
		for (const std::string &material : mesh.materials)
		{
			const long long materialId = nextId++;
			out += "\tMaterial: " + std::to_string(materialId) + ", \"Material::" + material + "\", \"\" {\n\t\tVersion: 102\n\t}\n";
			connections += "\tC: \"OO\"," + std::to_string(materialId) + "," + std::to_string(modelId) + "\n";
		}
		if (mesh.weights.empty())
			continue;
		const long long skinId = nextId++;
		out += "\tDeformer: " + std::to_string(skinId) + ", \"Deformer::skin\", \"Skin\" {\n\t\tVersion: 101\n\t}\n";
		connections += "\tC: \"OO\"," + std::to_string(skinId) + "," + std::to_string(geometryId) + "\n";
		std::vector<std::vector<int>> clusterIndexes(scene.joints.size());
		std::vector<std::vector<double>> clusterWeights(scene.joints.size());
		for (size_t p = 0; p < mesh.weights.size(); ++p)
		{
			for (const auto &[joint, weight] : mesh.weights[p])
			{
				clusterIndexes[(size_t)joint].push_back((int)p);
				clusterWeights[(size_t)joint].push_back(weight);
			}
		}
		for (size_t j = 0; j < scene.joints.size(); ++j)
		{
			if (clusterIndexes[j].empty())
				continue;
			const long long clusterId = nextId++;
			out += "\tDeformer: " + std::to_string(clusterId) + ", \"SubDeformer::" + scene.joints[j].name + "\", \"Cluster\" {\n\t\tVersion: 100\n";
			Array(out, "\t\t", "Indexes", clusterIndexes[j]);
			Array(out, "\t\t", "Weights", clusterWeights[j]);
			Array(out, "\t\t", "Transform", MatrixArray(Matrix4_t()));
			Array(out, "\t\t", "TransformLink", MatrixArray(jointGlobal[j]));
			out += "\t}\n";
			connections += "\tC: \"OO\"," + std::to_string(clusterId) + "," + std::to_string(skinId) + "\n";
			connections += "\tC: \"OO\"," + std::to_string(jointIds[j]) + "," + std::to_string(clusterId) + "\n";
		}
	}

	for (const FbxWriterAnimation_t &animation : scene.animations)
	{
		const long long stackId = nextId++, layerId = nextId++;
		const long long stop = (long long)std::llround((animation.frameCount - 1) / scene.fps * (double)ticksPerSecond);
		out += "\tAnimationStack: " + std::to_string(stackId) + ", \"AnimStack::" + animation.name + "\", \"\" {\n\t\tProperties70:  {\n";
		out += "\t\t\tP: \"LocalStart\", \"KTime\", \"Time\", \"\",0\n\t\t\tP: \"LocalStop\", \"KTime\", \"Time\", \"\"," + std::to_string(stop) + "\n";
		out += "\t\t\tP: \"ReferenceStart\", \"KTime\", \"Time\", \"\",0\n\t\t\tP: \"ReferenceStop\", \"KTime\", \"Time\", \"\"," + std::to_string(stop) + "\n";
		out += "\t\t}\n\t}\n";
		out += "\tAnimationLayer: " + std::to_string(layerId) + ", \"AnimLayer::BaseLayer\", \"\" {\n\t}\n";
		connections += "\tC: \"OO\"," + std::to_string(layerId) + "," + std::to_string(stackId) + "\n";
		std::vector<long long> times;
		for (int f = 0; f < animation.frameCount; ++f)
			times.push_back((long long)std::llround(f / scene.fps * (double)ticksPerSecond));
		for (size_t j = 0; j < scene.joints.size(); ++j)
		{
			for (int channel = 0; channel < 2; ++channel)
			{
				const long long nodeId = nextId++;
				const char *property = channel == 0 ? "Lcl Translation" : "Lcl Rotation";
				const Vector rest = channel == 0 ? scene.joints[j].translation : scene.joints[j].rotation;
				out += "\tAnimationCurveNode: " + std::to_string(nodeId) + ", \"AnimCurveNode::" + (channel == 0 ? "T" : "R") + "\", \"\" {\n"
					   "\t\tProperties70:  {\n";
				out += "\t\t\tP: \"d|X\", \"Number\", \"\", \"A\",";
				Number(out, rest.x);
				out += "\n\t\t\tP: \"d|Y\", \"Number\", \"\", \"A\",";
				Number(out, rest.y);
				out += "\n\t\t\tP: \"d|Z\", \"Number\", \"\", \"A\",";
				Number(out, rest.z);
				out += "\n\t\t}\n\t}\n";
				connections += "\tC: \"OO\"," + std::to_string(nodeId) + "," + std::to_string(layerId) + "\n";
				connections += "\tC: \"OP\"," + std::to_string(nodeId) + "," + std::to_string(jointIds[j]) + ", \"" + property + "\"\n";
				for (int axis = 0; axis < 3; ++axis)
				{
					const long long curveId = nextId++;
					std::vector<double> values;
					for (int f = 0; f < animation.frameCount; ++f)
					{
						const size_t at = (size_t)f * scene.joints.size() + j;
						values.push_back((channel == 0 ? animation.translations[at] : animation.rotations[at])[axis]);
					}
					out += "\tAnimationCurve: " + std::to_string(curveId) + ", \"AnimCurve::\", \"\" {\n\t\tDefault: 0\n\t\tKeyVer: 4009\n";
					Array(out, "\t\t", "KeyTime", times);
					Array(out, "\t\t", "KeyValueFloat", values);
					out += "\t\tKeyAttrFlags: *1 {\n\t\t\ta: 24836\n\t\t}\n\t\tKeyAttrDataFloat: *4 {\n\t\t\ta: 0,0,255790911,0\n\t\t}\n";
					out += "\t\tKeyAttrRefCount: *1 {\n\t\t\ta: " + std::to_string(animation.frameCount) + "\n\t\t}\n\t}\n";
					connections += "\tC: \"OP\"," + std::to_string(curveId) + "," + std::to_string(nodeId) + ", \"d|" + "XYZ"[axis] + "\"\n";
				}
			}
		}
	}
	out += "}\n\n" + connections + "}\n";
	return out;
}
