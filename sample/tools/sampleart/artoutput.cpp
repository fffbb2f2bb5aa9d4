#include "artoutput.h"

#include <filesystem>
#include <set>

#include "core/fileio.h"
#include "painter.h"

namespace sampleart
{
bool CArtOutput::WriteBytes(const std::string &rel, const void *data, size_t size)
{
	const std::filesystem::path path = std::filesystem::path(m_OutDir) / rel;
	std::error_code ec;
	std::filesystem::create_directories(path.parent_path(), ec);
	CUtlString error;
	if (!Plat_WriteFileAtomic(path.string().c_str(), data, size, &error))
	{
		Error(rel + ": " + error);
		return false;
	}
	m_Report.m_Files.push_back(rel);
	return true;
}

void CArtOutput::WriteFbx(const std::string &outRel, const FbxScene_t &sourceScene)
{
	// The points as the file keeps them, to two decimals; the topology is checked on those.
	FbxScene_t scene = sourceScene;
	for (CArtMesh &mesh : scene.m_Meshes)
	{
		mesh.Quantise(0.01);
		const std::string problem = mesh.CheckTopology();
		if (!problem.empty())
			Error(outRel + ": " + problem);
	}
	const std::string text = WriteAsciiFbx(scene);
	if (!WriteBytes(outRel, text.data(), text.size()))
		return;
	GeneratedFbx_t record;
	record.m_Path = outRel;
	for (const FbxBone_t &bone : scene.m_Skeleton.m_Bones)
		record.m_Bones.push_back(bone.m_Name);
	std::set<int> weighted;
	for (const CArtMesh &mesh : scene.m_Meshes)
	{
		record.m_nControlPoints += (int)mesh.m_Points.size();
		record.m_nFaces += mesh.FaceCount();
		record.m_nTriangles += mesh.TriangleCount();
		record.m_nCorners += mesh.CornerCount();
		record.m_nShells += mesh.m_nShells;
		record.m_nMaterials += (int)mesh.m_Materials.size();
		for (const auto &weights : mesh.m_Weights)
		{
			for (const BoneWeight_t &w : weights)
				weighted.insert(w.nBone);
		}
	}
	for (int bone : weighted)
		record.m_WeightedBones.push_back(scene.m_Skeleton.m_Bones[bone].m_Name);
	for (const FbxAnimation_t &anim : scene.m_Animations)
	{
		GeneratedAnimation_t a{ anim.m_Name, anim.m_nFrames, anim.m_nFrameRate, anim.Duration(), (int)anim.m_Tracks.size(), {} };
		std::set<std::string> bones;
		for (const FbxTrack_t &track : anim.m_Tracks)
		{
			if (FbxTrackAxes(track))
				bones.insert(scene.m_Skeleton.m_Bones[track.m_nBone].m_Name);
		}
		a.m_AnimatedBones.assign(bones.begin(), bones.end());
		record.m_Animations.push_back(a);
	}
	m_Report.m_Fbx.push_back(record);
}

bool CArtOutput::WritePng(const std::string &rel, const QImage &image)
{
	std::string bytes, error;
	if (!EncodePng(image, bytes, &error))
	{
		Error(rel + ": " + error);
		return false;
	}
	return WriteBytes(rel, bytes.data(), bytes.size());
}

const GeneratedFbx_t *CArtOutput::FindFbx(const std::string &rel) const
{
	for (const GeneratedFbx_t &fbx : m_Report.m_Fbx)
	{
		if (fbx.m_Path == rel)
			return &fbx;
	}
	return nullptr;
}
} // namespace sampleart
