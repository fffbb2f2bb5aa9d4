#include "toolscenetestassets.h"

#include <stdlib.h>

#include <algorithm>
#include <cmath>
#include <filesystem>

#include "imaging/blockcompress.h"
#include "imaging/texturebuild.h"
#include "imaging/ycocg.h"

CCompiledTexture TestTexture_FromImage(const CImageRGBA8 &image, ECompiledTextureFormat format, bool bSRGB, bool bYCoCg)
{
	TextureBuildOptions_t options;
	options.format = format == COMPILED_TEXTURE_BC1 ? TEXTURE_FORMAT_BC1 : format == COMPILED_TEXTURE_BC3 ? TEXTURE_FORMAT_BC3 : TEXTURE_FORMAT_RGBA8888;
	options.mipSpace = bSRGB ? MIP_FILTER_SRGB : MIP_FILTER_DATA;
	options.bYCoCg = bYCoCg;
	options.nThreads = 1;
	BuiltTexture_t built;
	CCompiledTexture texture;
	if (!Texture_Build(image, options, built))
		return texture;
	texture.m_eFormat = format;
	texture.m_nFlags = (bSRGB ? COMPILED_TEXTURE_FLAG_SRGB : 0) | (bYCoCg ? COMPILED_TEXTURE_FLAG_YCOCG : 0);
	texture.m_nWidth = (uint32)image.Width();
	texture.m_nHeight = (uint32)image.Height();
	for (const TextureLevel_t &level : built.levels)
	{
		CompiledMip_t mip;
		mip.m_nWidth = (uint32)level.nWidth;
		mip.m_nHeight = (uint32)level.nHeight;
		mip.m_Data.assign(built.data.begin() + (std::ptrdiff_t)level.nOffset, built.data.begin() + (std::ptrdiff_t)(level.nOffset + level.nSize));
		texture.m_Mips.push_back(std::move(mip));
	}
	return texture;
}

CCompiledTexture TestTexture_Solid(uint8 r, uint8 g, uint8 b, uint8 a, ECompiledTextureFormat format, int nSize, bool bSRGB, bool bYCoCg)
{
	CImageRGBA8 image;
	image.Init(nSize, nSize);
	for (int y = 0; y < nSize; ++y)
	{
		for (int x = 0; x < nSize; ++x)
		{
			uint8 *p = image.Pixel(x, y);
			p[0] = r;
			p[1] = g;
			p[2] = b;
			p[3] = a;
		}
	}
	return TestTexture_FromImage(image, format, bSRGB, bYCoCg);
}

bool TestTexture_DecodedPixel(const CCompiledTexture &texture, int x, int y, uint8 rgba[4])
{
	if (texture.m_Mips.empty())
		return false;
	const CompiledMip_t &mip = texture.m_Mips[0];
	CImageRGBA8 image;
	if (texture.m_eFormat == COMPILED_TEXTURE_RGBA8)
	{
		std::vector<uint8> pixels = mip.m_Data;
		if (!image.Assign((int)mip.m_nWidth, (int)mip.m_nHeight, std::move(pixels)))
			return false;
	}
	else
	{
		const TextureFormat_t format = texture.m_eFormat == COMPILED_TEXTURE_BC1 ? TEXTURE_FORMAT_BC1 : TEXTURE_FORMAT_BC3;
		if (!Texture_DecodeImage(format, mip.m_Data.data(), mip.m_Data.size(), (int)mip.m_nWidth, (int)mip.m_nHeight, image))
			return false;
	}
	if (texture.m_nFlags & COMPILED_TEXTURE_FLAG_YCOCG)
		Image_ConvertFromYCoCg(image);
	const uint8 *p = image.Pixel(x, y);
	std::copy(p, p + 4, rgba);
	return true;
}

CCompiledMaterial TestMaterial(const char *pszColorTexture, const char *pszTranslucencyTexture, const float *pColorConstant)
{
	CCompiledMaterial material;
	material.m_Shader = "hero.zfx";
	if (pszColorTexture)
		material.m_Textures.push_back({ "TextureColor", pszColorTexture });
	if (pszTranslucencyTexture)
	{
		material.m_Textures.push_back({ "TextureTranslucency", pszTranslucencyTexture });
		material.m_nFlags |= COMPILED_MATERIAL_FLAG_ALPHA_TEST;
	}
	if (pColorConstant)
	{
		CompiledMaterialConstant_t constant;
		constant.m_Key = "TextureColor";
		constant.m_eType = COMPILED_CONSTANT_FLOAT;
		for (int i = 0; i < 4; ++i)
			constant.m_flValues[i] = pColorConstant[i];
		material.m_Constants.push_back(constant);
	}
	return material;
}

CompiledMesh_t TestMesh_Quad(float size, float centreY, float centreZ, uint32 material)
{
	CompiledMesh_t mesh;
	mesh.m_Name = "quad";
	const float h = size * 0.5f;
	const Vector corners[4] = { Vector(0, centreY - h, centreZ + h), Vector(0, centreY + h, centreZ + h), Vector(0, centreY + h, centreZ - h),
		Vector(0, centreY - h, centreZ - h) };
	const CompiledTexCoord_t uvs[4] = { { 0, 0 }, { 1, 0 }, { 1, 1 }, { 0, 1 } };
	for (int i = 0; i < 4; ++i)
	{
		mesh.m_Positions.push_back(corners[i]);
		mesh.m_Normals.push_back(Vector(1, 0, 0));
		mesh.m_TexCoords.push_back(uvs[i]);
		mesh.m_Tangents.push_back({ 0, 1, 0, 1 });
	}
	const uint32 indices[6] = { 0, 3, 2, 0, 2, 1 };
	mesh.SetIndices(indices, 6);
	mesh.m_DrawCalls = { { material, 0, 6, 2 } };
	mesh.ComputeBounds();
	return mesh;
}

CCompiledModel TestModel_Quad(const char *pszMaterial, float size)
{
	CCompiledModel model;
	model.m_Materials = { pszMaterial };
	model.m_MaterialGroups = { { "default", {} } };
	model.m_LodSwitchThresholds = { 0.0f };
	model.m_Meshes.push_back(TestMesh_Quad(size, 0.0f, 0.0f));
	model.ComputeBounds();
	return model;
}

CompiledQuaternion_t TestStrip_Rotation(float degrees)
{
	const float half = degrees * 3.14159265358979f / 360.0f;
	return { std::sin(half), 0.0f, 0.0f, std::cos(half) };
}

namespace
{
// One frame of the strip's two bones: the root at rest, "upper" at (0, 0, 50) turned about x.
void AddStripFrame(CompiledSequence_t &seq, float degrees, bool bDelta, int nExtraBones)
{
	seq.m_Translations.push_back(Vector());
	seq.m_Rotations.push_back(CompiledQuaternion_t());
	seq.m_Translations.push_back(bDelta ? Vector() : Vector(0, 0, 50));
	seq.m_Rotations.push_back(TestStrip_Rotation(degrees));
	for (int b = 0; b < nExtraBones; ++b)
	{
		seq.m_Translations.push_back(bDelta ? Vector() : Vector(0, 0, (float)b));
		seq.m_Rotations.push_back(CompiledQuaternion_t());
	}
	++seq.m_nFrameCount;
	seq.m_nBoneCount = (uint32)(2 + nExtraBones);
}

int s_nExtraBones = 0;

CompiledSequence_t StripSequence(const char *pszName, std::initializer_list<float> frames, bool bLooping = false, bool bDelta = false)
{
	CompiledSequence_t seq;
	seq.m_Name = pszName;
	seq.m_flFps = 10.0f;
	seq.m_bLooping = bLooping;
	seq.m_bDelta = bDelta;
	for (float degrees : frames)
		AddStripFrame(seq, degrees, bDelta, s_nExtraBones);
	return seq;
}
} // namespace

CCompiledModel TestModel_SkinnedStrip(const char *pszMaterial, int nExtraBones)
{
	s_nExtraBones = nExtraBones;
	CCompiledModel model;
	model.m_Materials = { pszMaterial };
	model.m_MaterialGroups = { { "default", {} } };
	model.m_LodSwitchThresholds = { 0.0f };

	CompiledBone_t root;
	root.m_Name = "root";
	model.m_Bones.push_back(root);
	CompiledBone_t upper;
	upper.m_Name = "upper";
	upper.m_nParent = 0;
	upper.m_vPosition = Vector(0, 0, 50);
	upper.m_InverseBind.m[2][3] = -50.0f;
	model.m_Bones.push_back(upper);
	for (int b = 0; b < nExtraBones; ++b)
	{
		CompiledBone_t extra;
		extra.m_Name = "extra_" + std::to_string(b);
		extra.m_nParent = 0;
		extra.m_vPosition = Vector(0, 0, (float)b);
		extra.m_InverseBind.m[2][3] = -(float)b;
		model.m_Bones.push_back(extra);
	}

	CompiledMesh_t mesh;
	mesh.m_Name = "strip";
	mesh.m_Bones = { 0, 1 };
	const int rows = 4;
	for (int r = 0; r <= rows; ++r)
	{
		const float z = 100.0f * (float)r / (float)rows;
		for (int c = 0; c < 2; ++c)
		{
			const float y = c ? 10.0f : -10.0f;
			mesh.m_Positions.push_back(Vector(0, y, z));
			mesh.m_Normals.push_back(Vector(1, 0, 0));
			mesh.m_TexCoords.push_back({ (float)c, 1.0f - z / 100.0f });
			CompiledBoneIndices_t indices;
			CompiledBoneWeights_t weights;
			indices.m_nIndex[0] = 0;
			indices.m_nIndex[1] = 1;
			if (z < 50.0f)
				weights.m_nWeight[0] = 255;
			else if (z > 50.0f)
				weights.m_nWeight[1] = 255;
			else
			{
				weights.m_nWeight[0] = 128;
				weights.m_nWeight[1] = 127;
			}
			mesh.m_BoneIndices.push_back(indices);
			mesh.m_BoneWeights.push_back(weights);
		}
	}
	std::vector<uint32> indices;
	for (int r = 0; r < rows; ++r)
	{
		const uint32 a = (uint32)(r * 2), b = a + 1, c = a + 2, d = a + 3;
		indices.insert(indices.end(), { a, b, d, a, d, c });
	}
	mesh.SetIndices(indices.data(), indices.size());
	mesh.m_DrawCalls = { { 0, 0, mesh.IndexCount(), mesh.IndexCount() / 3 } };
	model.m_Meshes.push_back(std::move(mesh));

	CompiledAttachment_t tip;
	tip.m_Name = "tip";
	tip.m_nParentBone = 1;
	tip.m_vOrigin = Vector(0, 0, 50);
	model.m_Attachments.push_back(tip);

	CompiledPoseParameter_t lean;
	lean.m_Name = "lean";
	lean.m_flMin = -1.0f;
	lean.m_flMax = 1.0f;
	model.m_PoseParameters.push_back(lean);

	model.m_Sequences.push_back(StripSequence("bend", { 0.0f, 90.0f }));					  // 0
	CompiledSequence_t idle = StripSequence("idle", { 0.0f }, true);					  // 1
	idle.m_Activities = { { "ACT_ZARN_IDLE", 1 } };
	model.m_Sequences.push_back(idle);
	model.m_Sequences.push_back(StripSequence("lean_delta", { 90.0f }, false, true));	  // 2
	CompiledSequence_t layered = StripSequence("bind_layered", { 0.0f });				  // 3
	layered.m_AddLayers = { 2 };
	model.m_Sequences.push_back(layered);
	model.m_Sequences.push_back(StripSequence("pose_left", { -90.0f }));				  // 4
	model.m_Sequences.push_back(StripSequence("pose_center", { 0.0f }));				  // 5
	model.m_Sequences.push_back(StripSequence("pose_right", { 90.0f }));				  // 6
	CompiledSequence_t blend;															  // 7
	blend.m_Name = "lean_blend";
	blend.m_nBlendPoseParameter = 0;
	blend.m_BlendKeys = { { 4, -1.0f }, { 5, 0.0f }, { 6, 1.0f } };
	model.m_Sequences.push_back(blend);
	model.m_Sequences.push_back(StripSequence("wave", { 0.0f, 30.0f, 60.0f, 30.0f, 0.0f }, true)); // 8
	model.ComputeBounds();
	return model;
}

CCompiledModel TestModel_SkinnedTube(const char *pszMaterial, int triangles, int bones, int frames, float height)
{
	CCompiledModel model;
	model.m_Materials = { pszMaterial };
	model.m_MaterialGroups = { { "default", {} } };
	model.m_LodSwitchThresholds = { 0.0f };
	bones = std::clamp(bones, 2, 200);
	const float segment = height / (float)(bones - 1);
	for (int b = 0; b < bones; ++b)
	{
		CompiledBone_t bone;
		bone.m_Name = b == 0 ? "root" : "spine_" + std::to_string(b);
		bone.m_nParent = b - 1;
		bone.m_vPosition = Vector(0, 0, b == 0 ? 0.0f : segment);
		bone.m_InverseBind.m[2][3] = -segment * (float)b;
		model.m_Bones.push_back(bone);
	}

	CompiledMesh_t mesh;
	mesh.m_Name = "tube";
	const int sides = std::max(3, (int)std::lround(std::sqrt((double)triangles / 2.0)));
	const int rows = std::max(1, triangles / (2 * sides));
	const float radius = height * 0.12f;
	for (int b = 0; b < bones; ++b)
		mesh.m_Bones.push_back((uint32)b);
	for (int r = 0; r <= rows; ++r)
	{
		const float z = height * (float)r / (float)rows;
		const float t = z / segment;
		const int first = std::min((int)t, bones - 2);
		const float blend = std::clamp(t - (float)first, 0.0f, 1.0f);
		for (int s = 0; s <= sides; ++s)
		{
			const float angle = 6.2831853f * (float)s / (float)sides;
			const Vector normal(std::cos(angle), std::sin(angle), 0.0f);
			mesh.m_Positions.push_back(Vector(normal.x * radius, normal.y * radius, z));
			mesh.m_Normals.push_back(normal);
			mesh.m_TexCoords.push_back({ (float)s / (float)sides, 1.0f - z / height });
			// Four bones a vertex: the two around it and a little of the next ones out.
			CompiledBoneIndices_t indices;
			CompiledBoneWeights_t weights;
			const int chosen[4] = { first, first + 1, std::max(first - 1, 0), std::min(first + 2, bones - 1) };
			const float raw[4] = { (1.0f - blend) * 0.8f, blend * 0.8f, 0.1f, 0.1f };
			int sum = 0;
			for (int k = 0; k < 4; ++k)
			{
				indices.m_nIndex[k] = (uint8)chosen[k];
				weights.m_nWeight[k] = (uint8)std::lround(raw[k] * 255.0f);
				sum += weights.m_nWeight[k];
			}
			weights.m_nWeight[0] = (uint8)std::clamp(weights.m_nWeight[0] + (255 - sum), 0, 255);
			mesh.m_BoneIndices.push_back(indices);
			mesh.m_BoneWeights.push_back(weights);
		}
	}
	std::vector<uint32> indices;
	for (int r = 0; r < rows; ++r)
	{
		for (int s = 0; s < sides; ++s)
		{
			const uint32 a = (uint32)(r * (sides + 1) + s), b = a + 1, c = a + (uint32)(sides + 1), d = c + 1;
			indices.insert(indices.end(), { a, b, d, a, d, c });
		}
	}
	mesh.SetIndices(indices.data(), indices.size());
	mesh.m_DrawCalls = { { 0, 0, mesh.IndexCount(), mesh.IndexCount() / 3 } };
	model.m_Meshes.push_back(std::move(mesh));

	CompiledSequence_t run;
	run.m_Name = "run";
	run.m_bLooping = true;
	run.m_flFps = 30.0f;
	run.m_Activities = { { "ACT_ZARN_RUN", 1 } };
	run.m_nFrameCount = (uint32)std::max(frames, 1);
	run.m_nBoneCount = (uint32)bones;
	for (uint32 f = 0; f < run.m_nFrameCount; ++f)
	{
		for (int b = 0; b < bones; ++b)
		{
			const float degrees = b == 0 ? 0.0f : 12.0f * std::sin(6.2831853f * (float)f / (float)run.m_nFrameCount + (float)b * 0.35f);
			run.m_Translations.push_back(Vector(0, 0, b == 0 ? 0.0f : segment));
			run.m_Rotations.push_back(TestStrip_Rotation(degrees));
		}
	}
	model.m_Sequences.push_back(std::move(run));
	model.ComputeBounds();
	return model;
}

CTestGameFolder::CTestGameFolder()
{
	char pattern[] = "/tmp/mintyard_toolscene_XXXXXX";
	if (mkdtemp(pattern))
		m_Root = pattern;
}

CTestGameFolder::~CTestGameFolder()
{
	std::error_code ignored;
	if (!m_Root.empty())
		std::filesystem::remove_all(m_Root, ignored);
}

std::string CTestGameFolder::Path(const char *pszRelative) const
{
	return m_Root + "/" + pszRelative;
}

static bool MakeParent(const std::string &path)
{
	std::error_code error;
	std::filesystem::create_directories(std::filesystem::path(path).parent_path(), error);
	return !error;
}

bool CTestGameFolder::WriteTexture(const char *pszRelative, const CCompiledTexture &texture)
{
	const std::string path = Path(pszRelative);
	return MakeParent(path) && WriteCompiledTexture(path.c_str(), texture);
}

bool CTestGameFolder::WriteMaterial(const char *pszRelative, const CCompiledMaterial &material)
{
	const std::string path = Path(pszRelative);
	return MakeParent(path) && WriteCompiledMaterial(path.c_str(), material);
}

bool CTestGameFolder::WriteModel(const char *pszRelative, const CCompiledModel &model)
{
	const std::string path = Path(pszRelative);
	return MakeParent(path) && WriteCompiledModel(path.c_str(), model);
}
