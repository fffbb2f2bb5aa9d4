// Writes ASCII FBX 7.4 text for tests and benchmarks: meshes with their control points and
// polygons, per-corner normals (from each polygon's plane), optional UVs (index to direct),
// a material per mesh, and optional skins over a chain of limb nodes.
#pragma once

#include <cmath>
#include <cstdio>
#include <string>
#include <vector>

#include "core/mathtypes.h"

struct FbxTestMesh_t
{
	std::string name = "mesh";
	std::vector<Vector> positions;
	std::vector<std::vector<int>> polygons;
	std::vector<float> uvs;				  // two per corner when not empty
	std::string material = "material";
	// Skin: per control point one (joint, weight) pair per listed joint.
	std::vector<std::vector<std::pair<int, double>>> weights;
};

struct FbxTestScene_t
{
	std::vector<FbxTestMesh_t> meshes;
	std::vector<std::string> joints; // a chain: joint i is the parent of joint i + 1
};

namespace fbxtest
{
inline void AppendNumber(std::string &out, double value)
{
	char text[32];
	snprintf(text, sizeof(text), "%.9g", value);
	out += text;
}

template <typename T> void AppendArray(std::string &out, const char *indent, const char *name, const std::vector<T> &values)
{
	out += indent;
	out += name;
	out += ": *" + std::to_string(values.size()) + " {\n" + indent + "\ta: ";
	for (size_t i = 0; i < values.size(); ++i)
	{
		if (i)
			out += (i % 64) ? "," : ",\n\t\t\t";
		AppendNumber(out, (double)values[i]);
	}
	out += "\n" + std::string(indent) + "}\n";
}
} // namespace fbxtest

inline std::string WriteAsciiFbx(const FbxTestScene_t &scene)
{
	using namespace fbxtest;
	std::string out = "; FBX 7.4.0 project file\n; written by the meshio tests\n\n"
					  "FBXHeaderExtension:  {\n\tFBXHeaderVersion: 1003\n\tFBXVersion: 7400\n}\n"
					  "GlobalSettings:  {\n\tVersion: 1000\n\tProperties70:  {\n\t\tP: \"UpAxis\", \"int\", \"Integer\", \"\",1\n"
					  "\t\tP: \"UnitScaleFactor\", \"double\", \"Number\", \"\",1\n\t}\n}\n\nObjects:  {\n";
	std::string connections = "Connections:  {\n";
	long long nextId = 1000;
	std::vector<long long> jointIds;
	for (size_t j = 0; j < scene.joints.size(); ++j)
	{
		const long long id = nextId++;
		jointIds.push_back(id);
		out += "\tModel: " + std::to_string(id) + ", \"Model::" + scene.joints[j] + "\", \"LimbNode\" {\n\t\tVersion: 232\n"
			   "\t\tProperties70:  {\n\t\t\tP: \"Lcl Translation\", \"Lcl Translation\", \"\", \"A\",0," + (j ? "1" : "0") + ",0\n\t\t}\n\t}\n";
		connections += "\tC: \"OO\"," + std::to_string(id) + "," + (j ? std::to_string(jointIds[j - 1]) : std::string("0")) + "\n";
	}
	for (const FbxTestMesh_t &mesh : scene.meshes)
	{
		const long long geometryId = nextId++, modelId = nextId++, materialId = nextId++;
		std::vector<double> vertices;
		for (const Vector &p : mesh.positions)
		{
			vertices.push_back(p.x);
			vertices.push_back(p.y);
			vertices.push_back(p.z);
		}
		std::vector<int> indices;
		std::vector<double> normals;
		for (const std::vector<int> &polygon : mesh.polygons)
		{
			// Newell's normal of the polygon, for every corner of it.
			double n[3] = { 0, 0, 0 };
			for (size_t i = 0; i < polygon.size(); ++i)
			{
				const Vector &a = mesh.positions[polygon[i]];
				const Vector &b = mesh.positions[polygon[(i + 1) % polygon.size()]];
				n[0] += (a.y - b.y) * (a.z + b.z);
				n[1] += (a.z - b.z) * (a.x + b.x);
				n[2] += (a.x - b.x) * (a.y + b.y);
			}
			const double length = std::sqrt(n[0] * n[0] + n[1] * n[1] + n[2] * n[2]);
			for (size_t i = 0; i < polygon.size(); ++i)
			{
				indices.push_back(i + 1 == polygon.size() ? ~polygon[i] : polygon[i]);
				for (int k = 0; k < 3; ++k)
					normals.push_back(length > 0 ? n[k] / length : 0.0);
			}
		}
		out += "\tGeometry: " + std::to_string(geometryId) + ", \"Geometry::" + mesh.name + "\", \"Mesh\" {\n";
		AppendArray(out, "\t\t", "Vertices", vertices);
		AppendArray(out, "\t\t", "PolygonVertexIndex", indices);
		out += "\t\tGeometryVersion: 124\n\t\tLayerElementNormal: 0 {\n\t\t\tVersion: 101\n\t\t\tName: \"\"\n"
			   "\t\t\tMappingInformationType: \"ByPolygonVertex\"\n\t\t\tReferenceInformationType: \"Direct\"\n";
		AppendArray(out, "\t\t\t", "Normals", normals);
		out += "\t\t}\n";
		if (!mesh.uvs.empty())
		{
			std::vector<int> uvIndex;
			for (size_t i = 0; i < mesh.uvs.size() / 2; ++i)
				uvIndex.push_back((int)i);
			out += "\t\tLayerElementUV: 0 {\n\t\t\tVersion: 101\n\t\t\tName: \"map1\"\n"
				   "\t\t\tMappingInformationType: \"ByPolygonVertex\"\n\t\t\tReferenceInformationType: \"IndexToDirect\"\n";
			AppendArray(out, "\t\t\t", "UV", mesh.uvs);
			AppendArray(out, "\t\t\t", "UVIndex", uvIndex);
			out += "\t\t}\n";
		}
		out += "\t\tLayerElementMaterial: 0 {\n\t\t\tVersion: 101\n\t\t\tName: \"\"\n\t\t\tMappingInformationType: \"AllSame\"\n"
			   "\t\t\tReferenceInformationType: \"IndexToDirect\"\n\t\t\tMaterials: *1 {\n\t\t\t\ta: 0\n\t\t\t}\n\t\t}\n"
			   "\t\tLayer: 0 {\n\t\t\tVersion: 100\n\t\t\tLayerElement:  {\n\t\t\t\tType: \"LayerElementNormal\"\n\t\t\t\tTypedIndex: 0\n\t\t\t}\n\t\t}\n\t}\n";
		out += "\tModel: " + std::to_string(modelId) + ", \"Model::" + mesh.name + "\", \"Mesh\" {\n\t\tVersion: 232\n\t}\n";
		out += "\tMaterial: " + std::to_string(materialId) + ", \"Material::" + mesh.material + "\", \"\" {\n\t\tVersion: 102\n\t}\n";
		connections += "\tC: \"OO\"," + std::to_string(modelId) + ",0\n";
		connections += "\tC: \"OO\"," + std::to_string(geometryId) + "," + std::to_string(modelId) + "\n";
		connections += "\tC: \"OO\"," + std::to_string(materialId) + "," + std::to_string(modelId) + "\n";
		if (!mesh.weights.empty())
		{
			const long long skinId = nextId++;
			out += "\tDeformer: " + std::to_string(skinId) + ", \"Deformer::skin\", \"Skin\" {\n\t\tVersion: 101\n\t}\n";
			connections += "\tC: \"OO\"," + std::to_string(skinId) + "," + std::to_string(geometryId) + "\n";
			for (size_t j = 0; j < scene.joints.size(); ++j)
			{
				std::vector<int> indexes;
				std::vector<double> weights;
				for (size_t p = 0; p < mesh.weights.size(); ++p)
				{
					for (const auto &[joint, weight] : mesh.weights[p])
					{
						if (joint == (int)j)
						{
							indexes.push_back((int)p);
							weights.push_back(weight);
						}
					}
				}
				const long long clusterId = nextId++;
				out += "\tDeformer: " + std::to_string(clusterId) + ", \"SubDeformer::" + scene.joints[j] + "\", \"Cluster\" {\n\t\tVersion: 100\n";
				AppendArray(out, "\t\t", "Indexes", indexes);
				AppendArray(out, "\t\t", "Weights", weights);
				const std::vector<double> identity = { 1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1 };
				std::vector<double> link = identity;
				link[13] = (double)j; // the chain climbs one unit per joint
				AppendArray(out, "\t\t", "Transform", identity);
				AppendArray(out, "\t\t", "TransformLink", link);
				out += "\t}\n";
				connections += "\tC: \"OO\"," + std::to_string(clusterId) + "," + std::to_string(skinId) + "\n";
				connections += "\tC: \"OO\"," + std::to_string(jointIds[j]) + "," + std::to_string(clusterId) + "\n";
			}
		}
	}
	out += "}\n\n" + connections + "}\n";
	return out;
}
