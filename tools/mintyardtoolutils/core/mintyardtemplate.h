// Templates: what one kind of submission consists of. A template is read-only data, loaded from a
// KV3 document (encoding "text", format "generic") through the record transfer layer, or built by
// code (the wearable and ability icon templates of the catalogue).
//
// Members carry the names of their keys in the file. Save and Load treat the base class first and
// then the class's own members in file order; a member whose default is not zero, false or empty
// is read only when its key is present. Members without a key (the material's textures, the
// emoticon's sub-elements, the legacy mesh groups, the snapshot's suffix and vertex limit, the
// item definition's flag) are filled by code only and never touch a file.
#pragma once

#include "core/keyvalues3.h"
#include "core/kv3transfer.h"
#include "core/mathtypes.h"
#include "core/utlstring.h"
#include "core/utlvector.h"

class KeyValues;

// ---------------------------------------------------------------------------------------------
// Enums stored by name

enum EMintyardAnimBundleType : int32
{
	MINTYARD_ANIM_BUNDLE_INVALID = -1,
	MINTYARD_ANIM_BUNDLE_RUN = 0,		 // "run_anim_bundle"
	MINTYARD_ANIM_BUNDLE_LOOP_AND_RARE = 1, // "loop_and_rare"
	MINTYARD_ANIM_BUNDLE_MULTIBLEND = 2,	 // "multiblend_bundle"
};

enum EMintyardImageSetType : int32
{
	MINTYARD_IMAGE_SET_INVALID = -1,
	MINTYARD_IMAGE_SET_LOADING_SCREEN = 0,	// "loading_screen"
	MINTYARD_IMAGE_SET_MARKETING_IMAGE = 1, // "marketing_image"
	MINTYARD_IMAGE_SET_EMOTICON = 2,		// "emoticon"
	MINTYARD_IMAGE_SET_ABILITY_ICONS = 3,	// "abilityicons"
	MINTYARD_IMAGE_SET_CURSOR_PACK = 4,		// "cursor_pack"
};

enum EMintyardImageType : int32
{
	MINTYARD_IMAGE_TYPE_INVALID = -1,
	MINTYARD_IMAGE_TYPE_PNG = 0, // "png"
	MINTYARD_IMAGE_TYPE_BMP = 1, // "bmp"
};

enum EMintyardSoundSetType : int32
{
	MINTYARD_SOUND_SET_INVALID = -1,
	MINTYARD_SOUND_SET_MUSIC_PACK = 0, // "music_pack"
};

extern const CKV3EnumTable g_MintyardAnimBundleTypeNames;
extern const CKV3EnumTable g_MintyardImageSetTypeNames;
extern const CKV3EnumTable g_MintyardImageTypeNames;
extern const CKV3EnumTable g_MintyardSoundSetTypeNames;

// ---------------------------------------------------------------------------------------------
// Elements

class CMintyardTemplateElement
{
public:
	CMintyardTemplateElement() = default;
	virtual ~CMintyardTemplateElement() = default;

	// Sets id, name, desc and optional; info_url is left empty.
	virtual void Init(const char *pszId, const char *pszName, const char *pszDesc, bool bOptional);
	virtual void Save(CKV3TransferSaveContext &ctx) const;
	virtual void Load(CKV3TransferLoadContext &ctx);

	CUtlString id;		 // identity inside its list, compared without case
	CUtlString name;	 // localisation token of the display name
	CUtlString desc;	 // localisation token of the description
	CUtlString info_url; // address of a help page
	bool optional = false;
};

class CMintyardTemplateFilename : public CMintyardTemplateElement
{
public:
	void Save(CKV3TransferSaveContext &ctx) const override;
	void Load(CKV3TransferLoadContext &ctx) override;

	int32 max_file_size_kb = -1; // limit of the source file; below 1 means no limit
};

// One level of detail, or one extra mesh of a level.
class CMintyardTemplate_ZarnMesh : public CMintyardTemplateFilename
{
public:
	void Save(CKV3TransferSaveContext &ctx) const override;
	void Load(CKV3TransferLoadContext &ctx) override;

	int32 max_polygons = 0;
	int32 max_bones = 60;
	CUtlVector<CMintyardTemplate_ZarnMesh> extra_meshes;
};

class CMintyardTemplate_ZarnMaterial : public CMintyardTemplateElement
{
public:
	enum
	{
		TEXTURE_COLOR = 0,
		TEXTURE_TRANS,
		TEXTURE_NORMAL,
		TEXTURE_DETAILMASK,
		TEXTURE_DIFFUSEMASK,
		TEXTURE_METALNESSMASK,
		TEXTURE_SELFILLUMMASK,
		TEXTURE_SPECMASK,
		TEXTURE_RIMMASK,
		TEXTURE_BASETINTMASK,
		TEXTURE_SPECEXP,
		TEXTURE_COUNT, // 11
	};
	// The id of texture input `index` ("color", "trans", ...), null when out of range.
	static const char *TextureId(int index);

	CMintyardTemplate_ZarnMaterial();
	// Also sets up the eleven texture inputs.
	void Init(const char *pszId, const char *pszName, const char *pszDesc, bool bOptional) override;
	void Save(CKV3TransferSaveContext &ctx) const override;
	// Also sets up the eleven texture inputs.
	void Load(CKV3TransferLoadContext &ctx) override;
	// Gives the texture inputs their fixed ids, tokens and optional flags.
	void SetupTextures();

	CUtlString template_zmat;
	CUtlString material_group_name;
	CUtlString material_name_suffix;
	CUtlString g1_legacy_name;
	int32 max_tex_width = 0;
	int32 max_tex_height = 0;

	// Not in the file: one input per texture, in the order of the enum above.
	CMintyardTemplateFilename textures[TEXTURE_COUNT];
};

class CMintyardTemplate_BaseZarnModel : public CMintyardTemplateElement
{
public:
	void Save(CKV3TransferSaveContext &ctx) const override;
	void Load(CKV3TransferLoadContext &ctx) override;

	CUtlString model_name_suffix;
	CUtlString default_portrait_model;
};

class CMintyardTemplate_ZarnModel : public CMintyardTemplate_BaseZarnModel
{
public:
	class CAnim : public CMintyardTemplateFilename
	{
	public:
		struct Modifier_t
		{
			CUtlString modifier_name;
			int32 modifier_weight = 0;
			void Save(CKV3TransferSaveContext &ctx) const;
			void Load(CKV3TransferLoadContext &ctx);
		};
		struct BoneWeight_t
		{
			CUtlString bone_name;
			float bone_weight = 0.0f;
			void Save(CKV3TransferSaveContext &ctx) const;
			void Load(CKV3TransferLoadContext &ctx);
		};
		struct AnimEvent_t
		{
			CUtlString event_name;
			int32 frame_num = 0;
			CUtlString event_data_legacy;
			CKV3OwnedValue event_kv3; // any value, copied whole
			void Save(CKV3TransferSaveContext &ctx) const;
			void Load(CKV3TransferLoadContext &ctx);
		};

		void Save(CKV3TransferSaveContext &ctx) const override;
		void Load(CKV3TransferLoadContext &ctx) override;

		bool always_use_default_anim = false;
		bool suppress_run_motion_extraction = false;
		CUtlString default_anim; // key "default"
		CUtlString fallback_anim_id;
		CUtlString suffix;
		CUtlString sequence_name;
		CUtlString activity_name;
		CUtlVector<Modifier_t> modifiers;
		CUtlVector<BoneWeight_t> bone_weight_list;
		CUtlString g1_legacy_name;
		int32 activity_weight = 1;
		bool looping = false;
		bool add_motion_extraction = false;
		bool delta_animation = false;
		bool has_attack_point = false;
		float anim_length = 0.0f;
		CUtlVector<AnimEvent_t> anim_events;
	};

	class CAnimBundle : public CMintyardTemplateElement
	{
	public:
		void Save(CKV3TransferSaveContext &ctx) const override;
		void Load(CKV3TransferLoadContext &ctx) override;

		CUtlString compound_sequence_name;
		CUtlString compound_activity_name;
		bool compound_looping = false;
		CUtlString pose_param_name;
		CUtlVector<CAnim> anim_list;
		CUtlVector<CUtlString> fallback_bundles;
		EMintyardAnimBundleType bundle_type = MINTYARD_ANIM_BUNDLE_RUN;
	};

	class CAttach : public CMintyardTemplateElement
	{
	public:
		void Save(CKV3TransferSaveContext &ctx) const override;
		void Load(CKV3TransferLoadContext &ctx) override;

		Vector default_offset;
		Vector default_rotation; // the three numbers as the file gives them
		CUtlString attach_name;
		CUtlString attach_joint;
		CUtlString g1_legacy_name;
		bool can_edit_offset = false;
	};

	class CBodyGroup : public CMintyardTemplateElement
	{
	public:
		struct Choice_t
		{
			CUtlVector<CUtlString> meshes; // mesh name expressions
			void Save(CKV3TransferSaveContext &ctx) const;
			void Load(CKV3TransferLoadContext &ctx);
		};

		void Save(CKV3TransferSaveContext &ctx) const override;
		void Load(CKV3TransferLoadContext &ctx) override;

		CUtlString bodygroup_name;
		CUtlVector<Choice_t> choices;
	};

	class CMeshGroup_LEGACY : public CMintyardTemplateElement
	{
	public:
		void Save(CKV3TransferSaveContext &ctx) const override;
		void Load(CKV3TransferLoadContext &ctx) override;

		CUtlString mesh_group_name;
		bool enabled_by_default = false;
		CUtlVector<CUtlString> mesh_name_exprs;
	};

	class CParticleSnapshot : public CMintyardTemplateFilename
	{
	public:
		void Save(CKV3TransferSaveContext &ctx) const override;
		void Load(CKV3TransferLoadContext &ctx) override;

		CUtlString snapshot_bone;
		// Not in the file: set by code only.
		CUtlString file_suffix;
		int32 max_vertices = 0;
	};

	// A plain record, without the base keys.
	struct Hitbox_t
	{
		CUtlString set_name;
		CUtlString box_name;
		CUtlString bone_name;
		Vector min_bounds;
		Vector max_bounds;
		void Save(CKV3TransferSaveContext &ctx) const;
		void Load(CKV3TransferLoadContext &ctx);
	};

	void Save(CKV3TransferSaveContext &ctx) const override;
	void Load(CKV3TransferLoadContext &ctx) override;

	// False as soon as any animation (of the model or of a bundle) has always_use_default_anim.
	bool HasAnimationDefaults() const;
	// True when any animation (of the model or of a bundle) has a non-empty default.
	bool HasAnyAnimationDefault() const;

	CUtlVector<CMintyardTemplate_ZarnMesh> lod_list;		// finest first
	CUtlVector<CMeshGroup_LEGACY> meshgroup_list_LEGACY; // not in the file: set by code only
	CUtlVector<CBodyGroup> bodygroup_list;
	CUtlVector<CAnim> anim_list;
	CUtlVector<CAttach> attach_list;
	CUtlVector<CMintyardTemplate_ZarnMaterial> material_list;
	CUtlVector<Hitbox_t> hitbox_list;
	CUtlVector<CAnimBundle> anim_bundle_list;
	CUtlVector<CParticleSnapshot> particle_snapshot_list;
	CUtlString share_materials_from_model;
	CUtlString g1_legacy_name;
	CUtlString auto_hitbox_set_name;
	CUtlString root_bone_name;
	CUtlString preview_desc;
	Vector preview_offset;
	bool can_be_empty = false;
};

class CMintyardTemplate_ZarnImageSet : public CMintyardTemplateElement
{
public:
	class CImage : public CMintyardTemplateFilename
	{
	public:
		void Save(CKV3TransferSaveContext &ctx) const override;
		void Load(CKV3TransferLoadContext &ctx) override;

		EMintyardImageType image_type = MINTYARD_IMAGE_TYPE_PNG;
		int32 exact_width = -1; // -1: free
		int32 exact_height = -1;
	};

	// Base keys only; the three sub-elements are made by the constructor and no file touches them.
	class CEmoticon : public CMintyardTemplateElement
	{
	public:
		CEmoticon();

		CMintyardTemplateFilename image;		   // "image"
		CMintyardTemplateElement keyword;		   // "keyword"
		CMintyardTemplateElement default_frame; // "default_frame", optional
	};

	void Save(CKV3TransferSaveContext &ctx) const override;
	void Load(CKV3TransferLoadContext &ctx) override;

	CUtlVector<CImage> image_list;
	CUtlVector<CEmoticon> emoticon_image_list;
	EMintyardImageSetType image_set_type = MINTYARD_IMAGE_SET_LOADING_SCREEN;
};

class CMintyardTemplate_ZarnSoundSet : public CMintyardTemplateElement
{
public:
	class CSound : public CMintyardTemplateFilename
	{
	public:
		void Save(CKV3TransferSaveContext &ctx) const override;
		void Load(CKV3TransferLoadContext &ctx) override;

		CUtlString uigroup;
	};

	void Save(CKV3TransferSaveContext &ctx) const override;
	void Load(CKV3TransferLoadContext &ctx) override;

	CUtlVector<CSound> sound_list;
	EMintyardSoundSetType sound_set_type = MINTYARD_SOUND_SET_MUSIC_PACK;
};

// Base keys only: the string that the author gives is the configuration element's value.
class CMintyardTemplate_MiscData : public CMintyardTemplateElement
{
};

// One generated item definition.
class CMintyardTemplate_ZarnItemDef : public CMintyardTemplateElement
{
public:
	// One "asset_modifier" entry of the generated definition. A plain record.
	struct Visual_t
	{
		CUtlString type;
		CUtlString asset_expr;
		CUtlString modifier_expr;
		CUtlString frequency; // empty leaves the key out
		bool skip_if_asset_empty = false;
		bool replace_by_type = false;
		void Save(CKV3TransferSaveContext &ctx) const;
		void Load(CKV3TransferLoadContext &ctx);
	};
	// A plain record.
	struct KeyExpr_t
	{
		CUtlString key_expr;
		CUtlString value_expr;
		void Save(CKV3TransferSaveContext &ctx) const;
		void Load(CKV3TransferLoadContext &ctx);
	};

	void Save(CKV3TransferSaveContext &ctx) const override;
	void Load(CKV3TransferLoadContext &ctx) override;

	// The item of items_game that this definition starts from: for a definition with a hero
	// and a slot, the hero's item with the prefab "default_item" in that slot; otherwise the
	// first item whose prefab is prefab_type. Null when there is none.
	KeyValues *FindDefaultItem() const;

	CUtlString prefab_type;
	CUtlString localization_prefix;
	CUtlString localization_suffix;
	CUtlString item_type_name;
	CUtlString model_player_expr;
	CUtlString model_player1_expr;
	bool has_portrait = false;
	CUtlVector<Visual_t> visuals;
	CUtlVector<KeyExpr_t> set_keys;
	// Key "hero_name": kept as the hero's index in the hero table, -1 when absent or unknown.
	int32 hero_name = -1;
	// Key "loadout_slot": kept as the index of the slot among the hero's slots, -1 when absent.
	int32 loadout_slot = -1;
	// Not in the file: the generated definition starts without its "visuals" block.
	bool clear_visuals = false;
};

class CMintyardTemplate : public CMintyardTemplateElement
{
public:
	// The path of the file that the template came from (empty for a template built by code).
	explicit CMintyardTemplate(const char *pszSourcePath = "");

	void Save(CKV3TransferSaveContext &ctx) const override;
	void Load(CKV3TransferLoadContext &ctx) override;

	CUtlString source_path; // not a key

	CUtlString directory; // first path level under "items/"
	CUtlString game_unit;
	CUtlString template_group;
	CUtlString template_subgroup;
	bool ingame_preview_no_item_set = false;
	int32 max_submission_size_kb = -1; // 0 or less: no limit
	CUtlVector<CUtlString> mintyard_tags;

	CUtlVector<CMintyardTemplate_ZarnModel> models;
	CUtlVector<CMintyardTemplate_ZarnImageSet> image_sets;
	CUtlVector<CMintyardTemplate_ZarnItemDef> item_defs;
	CUtlVector<CMintyardTemplate_ZarnSoundSet> sound_sets;
	CUtlVector<CMintyardTemplate_MiscData> misc_data;
};
