// The compiled assets: models (".zmdl_c"), textures (".ztex_c"), materials (".zmat_c") and
// particle snapshots (".zsnap"), in memory and on disk.
//
// The resource compiler fills the records below and writes them with the Write* functions;
// everything else (the validation of an import, the tool scene, `resourcecompiler info`)
// reads them with the one loader here. The file formats are this project's own, versioned and
// documented byte by byte in README.md. The loader reads a file in one piece, checks its
// checksum and every count, offset and index against what is really there, and then copies
// the arrays out whole; a damaged file or one of another version is refused with a message
// that names the file and what was wrong.
//
// Nothing here throws; failures come back as false with a message in *pError.
#pragma once

#include <memory>
#include <string_view>
#include <vector>

#include "core/mathtypes.h"
#include "core/platform.h"
#include "core/utlbuffer.h"
#include "core/utlstring.h"

// ---------------------------------------------------------------------------------------------
// Small value types of the compiled formats, laid out as they are stored (little-endian).

struct CompiledTexCoord_t
{
	float u = 0.0f, v = 0.0f;
	bool operator==(const CompiledTexCoord_t &) const = default;
};

// A tangent with the sign of the bitangent in w (+1 or -1).
struct CompiledTangent_t
{
	float x = 0.0f, y = 0.0f, z = 0.0f, w = 1.0f;
	bool operator==(const CompiledTangent_t &) const = default;
};

struct CompiledQuaternion_t
{
	float x = 0.0f, y = 0.0f, z = 0.0f, w = 1.0f;
	bool operator==(const CompiledQuaternion_t &) const = default;
};

// Up to four bones of a vertex: indices into the mesh's bone list, and weights out of 255
// (a vertex's weights add up to 255; unused slots have weight 0).
struct CompiledBoneIndices_t
{
	uint8 m_nIndex[4] = {};
	bool operator==(const CompiledBoneIndices_t &) const = default;
};
struct CompiledBoneWeights_t
{
	uint8 m_nWeight[4] = {};
	bool operator==(const CompiledBoneWeights_t &) const = default;
};

// An affine transform: three rows of four, the fourth column is the translation.
struct CompiledMatrix3x4_t
{
	float m[3][4] = { { 1, 0, 0, 0 }, { 0, 1, 0, 0 }, { 0, 0, 1, 0 } };
	bool operator==(const CompiledMatrix3x4_t &) const = default;
};

struct CompiledBounds_t
{
	Vector m_vMins;
	Vector m_vMaxs;
	bool operator==(const CompiledBounds_t &) const = default;
};

// ---------------------------------------------------------------------------------------------
// Compiled model

// One draw of a mesh: a range of its index list drawn as a triangle list with one material.
struct CompiledDrawCall_t
{
	uint32 m_nMaterial = 0;		  // index into CCompiledModel::m_Materials
	uint32 m_nFirstIndex = 0;	  // into the mesh's indices
	uint32 m_nIndexCount = 0;	  // a multiple of 3
	uint32 m_nPrimitiveCount = 0; // triangles: m_nIndexCount / 3
	bool operator==(const CompiledDrawCall_t &) const = default;
};

struct CompiledMesh_t
{
	CUtlString m_Name;
	uint32 m_nLodMask = 1; // bit i set: the mesh belongs to LOD i

	// Vertex streams, one entry per vertex; the vertex count is m_Positions.size().
	std::vector<Vector> m_Positions;
	std::vector<Vector> m_Normals;
	std::vector<CompiledTangent_t> m_Tangents; // empty when the mesh has none
	std::vector<CompiledTexCoord_t> m_TexCoords;
	std::vector<CompiledBoneIndices_t> m_BoneIndices; // empty when m_Bones is empty
	std::vector<CompiledBoneWeights_t> m_BoneWeights;

	// Triangle-list indices, in one of two sizes: a mesh of up to 65536 vertices keeps them in
	// m_Indices16, a larger one in m_Indices32; the other list stays empty.
	std::vector<uint16> m_Indices16;
	std::vector<uint32> m_Indices32;

	std::vector<uint32> m_Bones; // skeleton indices of the bones the vertices name
	std::vector<CompiledDrawCall_t> m_DrawCalls;
	CompiledBounds_t m_Bounds;

	uint32 VertexCount() const { return (uint32)m_Positions.size(); }
	uint32 IndexCount() const { return (uint32)(m_Indices32.empty() ? m_Indices16.size() : m_Indices32.size()); }
	uint32 IndexSize() const { return m_Indices32.empty() ? 2 : 4; }
	uint32 GetIndex(uint32 i) const { return m_Indices32.empty() ? m_Indices16[i] : m_Indices32[i]; }
	bool IsSkinned() const { return !m_Bones.empty(); }
	// The sum of the draw calls' primitive counts.
	uint64 PrimitiveCount() const;
	// Stores the indices in the smaller size that the vertex count allows.
	void SetIndices(const uint32 *pIndices, size_t count);
	// The bounds of the positions (zero for an empty mesh).
	void ComputeBounds();
	bool operator==(const CompiledMesh_t &) const = default;
};

struct CompiledBone_t
{
	CUtlString m_Name;
	int32 m_nParent = -1; // a bone before this one, or -1 for a root
	// The bind pose, relative to the parent.
	Vector m_vPosition;
	CompiledQuaternion_t m_qRotation;
	Vector m_vScale = Vector(1.0f, 1.0f, 1.0f);
	// Model space to the bone's space in the bind pose.
	CompiledMatrix3x4_t m_InverseBind;
	bool operator==(const CompiledBone_t &) const = default;
};

struct CompiledMaterialRemap_t
{
	uint32 m_nFrom = 0; // indices into CCompiledModel::m_Materials
	uint32 m_nTo = 0;
	bool operator==(const CompiledMaterialRemap_t &) const = default;
};

// A skin: draw calls of material m_nFrom use m_nTo instead.
struct CompiledMaterialGroup_t
{
	CUtlString m_Name;
	std::vector<CompiledMaterialRemap_t> m_Remaps;
	bool operator==(const CompiledMaterialGroup_t &) const = default;
};

struct CompiledBodyGroupChoice_t
{
	CUtlString m_Name;
	std::vector<uint32> m_Meshes; // indices into CCompiledModel::m_Meshes; may be empty
	bool operator==(const CompiledBodyGroupChoice_t &) const = default;
};

struct CompiledBodyGroup_t
{
	CUtlString m_Name;
	std::vector<CompiledBodyGroupChoice_t> m_Choices;
	bool operator==(const CompiledBodyGroup_t &) const = default;
};

struct CompiledAttachment_t
{
	CUtlString m_Name;
	int32 m_nParentBone = -1; // -1: relative to the model's origin
	Vector m_vOrigin;
	QAngle m_Angles;
	bool m_bIgnoreRotation = false;
	bool operator==(const CompiledAttachment_t &) const = default;
};

struct CompiledHitbox_t
{
	CUtlString m_Name;
	int32 m_nBone = -1;
	Vector m_vMins;
	Vector m_vMaxs;
	bool operator==(const CompiledHitbox_t &) const = default;
};

struct CompiledHitboxSet_t
{
	CUtlString m_Name;
	bool m_bGenerated = false; // made by the compiler from the skeleton and meshes
	std::vector<CompiledHitbox_t> m_Hitboxes;
	bool operator==(const CompiledHitboxSet_t &) const = default;
};

struct CompiledPoseParameter_t
{
	CUtlString m_Name;
	float m_flMin = 0.0f;
	float m_flMax = 1.0f;
	bool m_bLooping = false;
	float m_flLoopRange = 0.0f;
	bool operator==(const CompiledPoseParameter_t &) const = default;
};

// Per-bone weights of a layered sequence, one per skeleton bone, each from 0 to 1.
struct CompiledWeightList_t
{
	CUtlString m_Name;
	std::vector<float> m_Weights;
	bool operator==(const CompiledWeightList_t &) const = default;
};

struct CompiledActivity_t
{
	CUtlString m_Name;
	int32 m_nWeight = 1;
	bool operator==(const CompiledActivity_t &) const = default;
};

struct CompiledEvent_t
{
	CUtlString m_Class;
	int32 m_nFrame = 0;
	CUtlString m_Keys; // the event's keys as KV3 text
	bool operator==(const CompiledEvent_t &) const = default;
};

struct CompiledBlendKey_t
{
	uint32 m_nSequence = 0; // index into CCompiledModel::m_Sequences
	float m_flValue = 0.0f; // the pose parameter's value at which the sequence is full
	bool operator==(const CompiledBlendKey_t &) const = default;
};

enum ECompiledMotionFlags
{
	COMPILED_MOTION_TX = 0x1,
	COMPILED_MOTION_TY = 0x2,
	COMPILED_MOTION_TZ = 0x4,
	COMPILED_MOTION_RZ = 0x8,
	COMPILED_MOTION_ALL = 0xF,
};

struct CompiledSequence_t
{
	CUtlString m_Name;
	uint32 m_nFrameCount = 0;
	float m_flFps = 30.0f;
	bool m_bLooping = false;
	bool m_bDelta = false; // the frames hold differences to be added to another pose
	int32 m_nWeightList = -1; // index into CCompiledModel::m_WeightLists, or -1
	std::vector<CompiledActivity_t> m_Activities;
	std::vector<CompiledActivity_t> m_Modifiers;
	std::vector<CompiledEvent_t> m_Events;
	// A blend over a pose parameter: the keys name the sequences it blends.
	int32 m_nBlendPoseParameter = -1; // index into CCompiledModel::m_PoseParameters, or -1
	std::vector<CompiledBlendKey_t> m_BlendKeys;
	std::vector<uint32> m_AddLayers; // sequences layered on top of this one
	uint32 m_nMotionFlags = 0;		  // ECompiledMotionFlags extracted from the root bone
	int32 m_nMotionRootBone = -1;

	// The animation: for each frame, each bone's transform relative to its parent, at index
	// frame * m_nBoneCount + bone. m_nBoneCount is 0 for a sequence without frames of its own
	// (a blend), otherwise the skeleton's bone count. m_Scales is empty when every scale is 1.
	uint32 m_nBoneCount = 0;
	std::vector<Vector> m_Translations;
	std::vector<CompiledQuaternion_t> m_Rotations;
	std::vector<Vector> m_Scales;

	bool operator==(const CompiledSequence_t &) const = default;
};

class CCompiledModel
{
public:
	enum : uint32 { MAX_LODS = 32, MAX_MESH_BONES = 256 };

	std::vector<CompiledMesh_t> m_Meshes;
	std::vector<CompiledBone_t> m_Bones; // parents before children
	std::vector<CUtlString> m_Materials; // compiled material paths under the game root
	std::vector<CompiledMaterialGroup_t> m_MaterialGroups; // [0] is the default group
	std::vector<CompiledBodyGroup_t> m_BodyGroups;
	std::vector<float> m_LodSwitchThresholds; // one per LOD
	std::vector<CompiledAttachment_t> m_Attachments;
	std::vector<CompiledHitboxSet_t> m_HitboxSets;
	std::vector<CompiledPoseParameter_t> m_PoseParameters;
	std::vector<CompiledWeightList_t> m_WeightLists;
	std::vector<CompiledSequence_t> m_Sequences;
	CompiledBounds_t m_Bounds;

	// What the validation of an import reads.
	int GetMeshCount() const { return (int)m_Meshes.size(); }
	const CompiledMesh_t &GetMesh(int index) const { return m_Meshes[(size_t)index]; }
	uint32 GetMeshLodMask(int mesh) const { return m_Meshes[(size_t)mesh].m_nLodMask; }
	int GetMeshBoneCount(int mesh) const { return (int)m_Meshes[(size_t)mesh].m_Bones.size(); }
	const char *GetMeshBoneName(int mesh, int bone) const;
	const std::vector<CompiledDrawCall_t> &GetMeshDrawCalls(int mesh) const { return m_Meshes[(size_t)mesh].m_DrawCalls; }
	uint64 GetMeshPrimitiveCount(int mesh) const { return m_Meshes[(size_t)mesh].PrimitiveCount(); }
	// The first bone of that name (exact case), or -1.
	int FindBone(std::string_view name) const;
	int FindSequence(std::string_view name) const;	 // without case
	int FindAttachment(std::string_view name) const; // without case
	int FindPoseParameter(std::string_view name) const;
	int GetLodCount() const { return (int)m_LodSwitchThresholds.size(); }

	// Sets each mesh's bounds from its positions and the model's from the meshes'.
	void ComputeBounds();
	// True when every count, index and reference agrees (what the writer requires and the
	// loader checks): vertex streams of equal length, indices below the vertex count, draw
	// calls inside the index list, references inside their lists, parents before children,
	// animation arrays of frames times bones. Otherwise false and the first problem.
	bool Check(CUtlString *pError) const;
	bool operator==(const CCompiledModel &) const = default;
};

// ---------------------------------------------------------------------------------------------
// Compiled texture

// Fixed to 32 bits: a value read from a file may be anything until it is checked.
enum ECompiledTextureFormat : uint32
{
	COMPILED_TEXTURE_RGBA8 = 1, // 4 bytes a pixel, rows top to bottom
	COMPILED_TEXTURE_BC1 = 2,	// 8 bytes a 4x4 block, no alpha
	COMPILED_TEXTURE_BC3 = 3,	// 16 bytes a 4x4 block, with alpha
};

enum ECompiledTextureFlags
{
	COMPILED_TEXTURE_FLAG_SRGB = 0x1,  // colour in sRGB; without it the texels are data (normals, masks)
	COMPILED_TEXTURE_FLAG_YCOCG = 0x2, // BC3 holding scaled YCoCg colour
	COMPILED_TEXTURE_FLAG_ALL = 0x3,
};

struct CompiledMip_t
{
	uint32 m_nWidth = 0;
	uint32 m_nHeight = 0;
	std::vector<uint8> m_Data;
	bool operator==(const CompiledMip_t &) const = default;
};

class CCompiledTexture
{
public:
	enum : uint32 { MAX_SIZE = 16384 };

	ECompiledTextureFormat m_eFormat = COMPILED_TEXTURE_RGBA8;
	uint32 m_nFlags = 0;
	uint32 m_nWidth = 0; // of mip 0
	uint32 m_nHeight = 0;
	std::vector<CompiledMip_t> m_Mips; // largest first; mip i is max(1, size >> i)

	// Bytes of one mip of that size in that format (0 for an unknown format).
	static uint64 MipByteSize(ECompiledTextureFormat format, uint32 width, uint32 height);
	// "RGBA8", "BC1", "BC3".
	static const char *FormatName(ECompiledTextureFormat format);
	bool Check(CUtlString *pError) const;
	bool operator==(const CCompiledTexture &) const = default;
};

// ---------------------------------------------------------------------------------------------
// Compiled material

enum ECompiledMaterialFlags
{
	COMPILED_MATERIAL_FLAG_TRANSLUCENT = 0x1,
	COMPILED_MATERIAL_FLAG_ALPHA_TEST = 0x2,
	COMPILED_MATERIAL_FLAG_ADDITIVE = 0x4,
	COMPILED_MATERIAL_FLAG_TWO_SIDED = 0x8,
	COMPILED_MATERIAL_FLAG_ALL = 0xF,
};

struct CompiledMaterialTexture_t
{
	CUtlString m_Key;  // the material's key, e.g. "TextureColor"
	CUtlString m_Path; // the compiled texture under the game root, e.g. "materials/x_png.ztex_c"
	bool operator==(const CompiledMaterialTexture_t &) const = default;
};

enum ECompiledConstantType : uint32
{
	COMPILED_CONSTANT_FLOAT = 0,
	COMPILED_CONSTANT_INT = 1,
};

struct CompiledMaterialConstant_t
{
	CUtlString m_Key;
	ECompiledConstantType m_eType = COMPILED_CONSTANT_FLOAT;
	float m_flValues[4] = {}; // used when m_eType is COMPILED_CONSTANT_FLOAT
	int32 m_nValues[4] = {};  // used when m_eType is COMPILED_CONSTANT_INT
	// Compares the key, the type and the values of that type.
	bool operator==(const CompiledMaterialConstant_t &other) const;
};

class CCompiledMaterial
{
public:
	CUtlString m_Shader;
	uint32 m_nFlags = 0; // ECompiledMaterialFlags
	std::vector<CompiledMaterialTexture_t> m_Textures;
	std::vector<CompiledMaterialConstant_t> m_Constants;

	// The texture path of a key (without case), or null.
	const char *FindTexture(std::string_view key) const;
	const CompiledMaterialConstant_t *FindConstant(std::string_view key) const;
	bool Check(CUtlString *pError) const;
	bool operator==(const CCompiledMaterial &) const = default;
};

// ---------------------------------------------------------------------------------------------
// Particle snapshot

class CCompiledSnapshot
{
public:
	CUtlString m_LocalSpaceBone; // the bone the points move with; empty for model space
	std::vector<Vector> m_Positions;
	std::vector<Vector> m_Normals; // one per position

	bool Check(CUtlString *pError) const;
	bool operator==(const CCompiledSnapshot &) const = default;
};

// ---------------------------------------------------------------------------------------------
// Loading and writing

enum ECompiledAssetType
{
	COMPILED_ASSET_UNKNOWN = 0,
	COMPILED_ASSET_MODEL,
	COMPILED_ASSET_TEXTURE,
	COMPILED_ASSET_MATERIAL,
	COMPILED_ASSET_SNAPSHOT,
};

// "model", "texture", "material", "particle snapshot"; "unknown".
const char *CompiledAssetTypeName(ECompiledAssetType type);
// The kind of a compiled file by its magic (the first four bytes).
ECompiledAssetType IdentifyCompiledAsset(const void *pData, size_t size);

// Any compiled asset: the type says which one of the pointers is set.
struct CompiledAsset_t
{
	ECompiledAssetType m_eType = COMPILED_ASSET_UNKNOWN;
	std::unique_ptr<CCompiledModel> m_pModel;
	std::unique_ptr<CCompiledTexture> m_pTexture;
	std::unique_ptr<CCompiledMaterial> m_pMaterial;
	std::unique_ptr<CCompiledSnapshot> m_pSnapshot;
};

// Loaders. The file is read through the core's file system (`pathID` as there: null takes the
// path as it stands). `pszName` names the data in messages.
bool LoadCompiledAsset(const char *pszPath, CompiledAsset_t &out, CUtlString *pError = nullptr, const char *pszPathID = nullptr);
bool LoadCompiledModel(const char *pszPath, CCompiledModel &out, CUtlString *pError = nullptr, const char *pszPathID = nullptr);
bool LoadCompiledTexture(const char *pszPath, CCompiledTexture &out, CUtlString *pError = nullptr, const char *pszPathID = nullptr);
bool LoadCompiledMaterial(const char *pszPath, CCompiledMaterial &out, CUtlString *pError = nullptr, const char *pszPathID = nullptr);
bool LoadCompiledSnapshot(const char *pszPath, CCompiledSnapshot &out, CUtlString *pError = nullptr, const char *pszPathID = nullptr);

bool LoadCompiledAssetFromMemory(const void *pData, size_t size, const char *pszName, CompiledAsset_t &out, CUtlString *pError = nullptr);
bool LoadCompiledModelFromMemory(const void *pData, size_t size, const char *pszName, CCompiledModel &out, CUtlString *pError = nullptr);
bool LoadCompiledTextureFromMemory(const void *pData, size_t size, const char *pszName, CCompiledTexture &out, CUtlString *pError = nullptr);
bool LoadCompiledMaterialFromMemory(const void *pData, size_t size, const char *pszName, CCompiledMaterial &out, CUtlString *pError = nullptr);
bool LoadCompiledSnapshotFromMemory(const void *pData, size_t size, const char *pszName, CCompiledSnapshot &out, CUtlString *pError = nullptr);

// Writers. Each checks the record first (Check) and refuses an inconsistent one. The file is
// written atomically: a failure leaves the previous file as it was.
bool SerializeCompiledModel(const CCompiledModel &model, CUtlBuffer &out, CUtlString *pError = nullptr);
bool SerializeCompiledTexture(const CCompiledTexture &texture, CUtlBuffer &out, CUtlString *pError = nullptr);
bool SerializeCompiledMaterial(const CCompiledMaterial &material, CUtlBuffer &out, CUtlString *pError = nullptr);
bool SerializeCompiledSnapshot(const CCompiledSnapshot &snapshot, CUtlBuffer &out, CUtlString *pError = nullptr);
bool WriteCompiledModel(const char *pszPath, const CCompiledModel &model, CUtlString *pError = nullptr);
bool WriteCompiledTexture(const char *pszPath, const CCompiledTexture &texture, CUtlString *pError = nullptr);
bool WriteCompiledMaterial(const char *pszPath, const CCompiledMaterial &material, CUtlString *pError = nullptr);
bool WriteCompiledSnapshot(const char *pszPath, const CCompiledSnapshot &snapshot, CUtlString *pError = nullptr);
