// Loading and saving a large skinned mesh in each encoding.
//
// The mesh follows the project's DMX mesh schema: a model with a skeleton of 64 joints and their
// bind transforms, one mesh of a grid of quads split into triangles, with positions, normals,
// texture coordinates, four weights and joint indices per position, per-corner indices of each
// stream and the face list. The binary file is about 50 MB. Throughput counts the file's bytes.
//
//   build/bench/datamodel_bench --benchmark_filter=Load
#include <benchmark/benchmark.h>

#include <cmath>
#include <cstdio>
#include <string>
#include <unistd.h>

#include "core/fileio.h"
#include "datamodel/dmxio.h"

namespace
{
const int kGridSide = 560; // positions per side: 313,600 positions, 623,202 triangles
const int kJoints = 64;

CDmElement *MakeTransform(CDmxDocument &doc, const char *name, const Vector &position)
{
	CDmElement *pTransform = doc.CreateElement("DmeTransform", name);
	pTransform->SetValue("position", position);
	pTransform->SetValue("orientation", Quaternion());
	return pTransform;
}

void BuildMesh(CDmxDocument &doc)
{
	CDmElement *pRoot = doc.CreateElement("DmElement", "root");
	doc.SetRoot(pRoot);
	CDmElement *pModel = doc.CreateElement("DmeModel", "bench");
	pRoot->SetValue("model", pModel);
	pRoot->SetValue("skeleton", pModel);
	pModel->SetValue("transform", MakeTransform(doc, "bench", Vector()));
	pModel->SetValue("upAxis", "Z");

	std::vector<CDmElement *> joints;
	std::vector<CDmElement *> bindTransforms;
	CDmElement *pParent = pModel;
	for (int j = 0; j < kJoints; ++j)
	{
		CDmElement *pJoint = doc.CreateElement("DmeJoint", "joint" + std::to_string(j));
		CDmElement *pTransform = MakeTransform(doc, pJoint->GetName().c_str(), Vector(0, 0, 1.5f));
		pJoint->SetValue("transform", pTransform);
		pParent->GetArrayForEdit<CDmElement *>("children", true)->push_back(pJoint);
		pParent = pJoint;
		joints.push_back(pJoint);
		bindTransforms.push_back(MakeTransform(doc, pJoint->GetName().c_str(), Vector(0, 0, 1.5f)));
	}
	pModel->SetArray("jointList", joints);
	CDmElement *pBind = doc.CreateElement("DmeTransformsList", "bind");
	pBind->SetArray("transforms", bindTransforms);
	pModel->SetArray<CDmElement *>("baseStates", { pBind });

	CDmElement *pDag = doc.CreateElement("DmeDag", "body");
	pDag->SetValue("transform", MakeTransform(doc, "body", Vector()));
	pModel->GetArrayForEdit<CDmElement *>("children", true)->push_back(pDag);
	CDmElement *pMesh = doc.CreateElement("DmeMesh", "body");
	pDag->SetValue("shape", pMesh);
	CDmElement *pData = doc.CreateElement("DmeVertexData", "bind");
	pMesh->SetValue("bindState", pData);
	pMesh->SetValue("currentState", pData);
	pMesh->SetArray<CDmElement *>("baseStates", { pData });

	pData->SetArray<CUtlString>("vertexFormat", { "position$0", "normal$0", "texcoord$0", "blendweights$0", "blendindices$0" });
	pData->SetValue("jointCount", 4);
	pData->SetValue("flipVCoordinates", false);
	const int n = kGridSide;
	std::vector<Vector> positions, normals;
	std::vector<Vector2D> texcoords;
	std::vector<float> weights;
	std::vector<int32> jointIndices;
	for (int y = 0; y < n; ++y)
	{
		for (int x = 0; x < n; ++x)
		{
			const float u = (float)x / (n - 1), v = (float)y / (n - 1);
			positions.push_back(Vector(u * 10.0f, std::sin(u * 6.2831853f) * 0.5f, v * 96.0f));
			normals.push_back(Vector(0, 1, 0));
			texcoords.push_back(Vector2D(u, v));
			const int joint = std::min(kJoints - 2, (int)(v * (kJoints - 1)));
			weights.insert(weights.end(), { 0.5f, 0.3f, 0.15f, 0.05f });
			jointIndices.insert(jointIndices.end(), { joint, joint + 1, std::max(0, joint - 1), 0 });
		}
	}
	std::vector<int32> corners, faces;
	for (int y = 0; y + 1 < n; ++y)
	{
		for (int x = 0; x + 1 < n; ++x)
		{
			const int a = y * n + x, b = a + 1, c = a + n + 1, d = a + n;
			for (int k : { a, b, c, a, c, d })
			{
				faces.push_back((int32)corners.size());
				corners.push_back(k);
				if (faces.size() % 4 == 3)
					faces.push_back(-1);
			}
		}
	}
	pData->SetArray("position$0", std::move(positions));
	pData->SetArray("position$0Indices", corners);
	pData->SetArray("normal$0", std::move(normals));
	pData->SetArray("normal$0Indices", corners);
	pData->SetArray("texcoord$0", std::move(texcoords));
	pData->SetArray("texcoord$0Indices", corners);
	pData->SetArray("blendweights$0", std::move(weights));
	pData->SetArray("blendindices$0", std::move(jointIndices));

	CDmElement *pFaceSet = doc.CreateElement("DmeFaceSet", "skin");
	CDmElement *pMaterial = doc.CreateElement("DmeMaterial", "skin");
	pMaterial->SetValue("mtlName", "materials/models/bench/skin.zmat");
	pFaceSet->SetValue("material", pMaterial);
	pFaceSet->SetArray("faces", std::move(faces));
	pMesh->SetArray<CDmElement *>("faceSets", { pFaceSet });
}

struct Files_t
{
	std::string binary;
	std::string text;
	std::string binaryPath;
	std::string textPath;

	~Files_t()
	{
		if (!binaryPath.empty())
			unlink(binaryPath.c_str());
		if (!textPath.empty())
			unlink(textPath.c_str());
	}
};

const Files_t &Files()
{
	static const Files_t s_Files = []
	{
		CDmxDocument doc;
		BuildMesh(doc);
		Files_t files;
		CUtlBuffer buffer;
		CUtlString error;
		if (!DmxSaveBuffer(buffer, doc.GetRoot(), "binary", "model", DMX_CURRENT_FORMAT_VERSION, &error))
			fprintf(stderr, "%s\n", error.c_str());
		files.binary.assign(buffer.Base(), buffer.Size());
		buffer.Clear();
		if (!DmxSaveBuffer(buffer, doc.GetRoot(), "keyvalues2", "model", DMX_CURRENT_FORMAT_VERSION, &error))
			fprintf(stderr, "%s\n", error.c_str());
		files.text.assign(buffer.Base(), buffer.Size());
		files.binaryPath = "/tmp/datamodel_bench_" + std::to_string(getpid()) + ".dmx";
		files.textPath = "/tmp/datamodel_bench_" + std::to_string(getpid()) + "_text.dmx";
		Plat_WriteFileAtomic(files.binaryPath.c_str(), files.binary.data(), files.binary.size());
		Plat_WriteFileAtomic(files.textPath.c_str(), files.text.data(), files.text.size());
		fprintf(stderr, "binary file %.1f MB, keyvalues2 file %.1f MB\n", files.binary.size() / 1e6, files.text.size() / 1e6);
		return files;
	}();
	return s_Files;
}

void LoadBuffer(benchmark::State &state, const std::string &bytes)
{
	for (auto _ : state)
	{
		CDmxDocument doc;
		CUtlString error;
		if (!DmxLoadBuffer(bytes.data(), bytes.size(), "bench.dmx", doc, &error))
		{
			state.SkipWithError(error.c_str());
			break;
		}
		benchmark::DoNotOptimize(doc.GetRoot());
	}
	state.SetBytesProcessed((int64_t)state.iterations() * (int64_t)bytes.size());
}

void LoadFile(benchmark::State &state, const std::string &path, size_t size)
{
	for (auto _ : state)
	{
		CDmxDocument doc;
		CUtlString error;
		if (!DmxLoadFile(path.c_str(), doc, &error))
		{
			state.SkipWithError(error.c_str());
			break;
		}
		benchmark::DoNotOptimize(doc.GetRoot());
	}
	state.SetBytesProcessed((int64_t)state.iterations() * (int64_t)size);
}

void BM_LoadBinaryBuffer(benchmark::State &state)
{
	LoadBuffer(state, Files().binary);
}
void BM_LoadBinaryFile(benchmark::State &state)
{
	LoadFile(state, Files().binaryPath, Files().binary.size());
}
void BM_LoadTextBuffer(benchmark::State &state)
{
	LoadBuffer(state, Files().text);
}
void BM_LoadTextFile(benchmark::State &state)
{
	LoadFile(state, Files().textPath, Files().text.size());
}

void Save(benchmark::State &state, const char *encoding, size_t size)
{
	CDmxDocument doc;
	CUtlString error;
	DmxLoadBuffer(Files().binary.data(), Files().binary.size(), "bench.dmx", doc, &error);
	for (auto _ : state)
	{
		CUtlBuffer buffer;
		if (!DmxSaveBuffer(buffer, doc.GetRoot(), encoding, "model", DMX_CURRENT_FORMAT_VERSION, &error))
		{
			state.SkipWithError(error.c_str());
			break;
		}
		benchmark::DoNotOptimize(buffer.Base());
	}
	state.SetBytesProcessed((int64_t)state.iterations() * (int64_t)size);
}
void BM_SaveBinary(benchmark::State &state)
{
	Save(state, "binary", Files().binary.size());
}
void BM_SaveText(benchmark::State &state)
{
	Save(state, "keyvalues2", Files().text.size());
}
} // namespace

BENCHMARK(BM_LoadBinaryBuffer)->Unit(benchmark::kMillisecond)->MinTime(2.0);
BENCHMARK(BM_LoadBinaryFile)->Unit(benchmark::kMillisecond)->MinTime(2.0);
BENCHMARK(BM_LoadTextBuffer)->Unit(benchmark::kMillisecond)->MinTime(2.0);
BENCHMARK(BM_LoadTextFile)->Unit(benchmark::kMillisecond)->MinTime(2.0);
BENCHMARK(BM_SaveBinary)->Unit(benchmark::kMillisecond)->MinTime(2.0);
BENCHMARK(BM_SaveText)->Unit(benchmark::kMillisecond)->MinTime(2.0);

BENCHMARK_MAIN();
