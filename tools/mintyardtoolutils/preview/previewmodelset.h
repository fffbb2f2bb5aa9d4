// The preview model set: the data behind every 3D preview of the wizard. Given a hero or unit, the
// wearables in its slots and the item keys of the submission under import, it works out which
// models, particles, skins and styles stand in the scene and what each hangs on. It owns no
// scene objects: it holds lists and tells its listeners, and the scenes (previewscene.h) turn the
// lists into model nodes.
//
// Preview modes, shared with the portrait model and its panels:
//   0, 1  a hero (or unit) with its wearables
//   2     an item shown alone
//   3     a courier (team and walking or flying)
//   4     a ward (observer or sentry)
//   5     a loading-screen picture
//
// Items are the game's item keys: the submission's own (made by the item key generation), the
// hero's default item of each slot from items_game, and the author's choices in other slots.
// Each item's `visuals` give its styles' modifier lists.
#pragma once

#include <memory>

#include "core/logging.h"
#include "core/mathtypes.h"
#include "core/utlstring.h"
#include "core/utlvector.h"

class KeyValues;
class CMintyardCfg_ZarnItemDef;

// The preview's messages go to the tool's channel, "MintyardManager".
DECLARE_LOGGING_CHANNEL(LOG_MINTYARD_PREVIEW);
class CToolSceneResources;
class CZarnPreviewModelSet;
struct hero_t;
struct hero_slot_t;

enum EZarnPreviewMode
{
	ZARN_PREVIEW_MODE_HERO = 0,
	ZARN_PREVIEW_MODE_UNIT = 1,
	ZARN_PREVIEW_MODE_ITEM = 2,
	ZARN_PREVIEW_MODE_COURIER = 3,
	ZARN_PREVIEW_MODE_WARD = 4,
	ZARN_PREVIEW_MODE_LOADING_SCREEN = 5,
	ZARN_PREVIEW_MODE_COUNT = 6,
};

// The aspect of the loading-screen picture of mode 5.
constexpr float ZARN_PREVIEW_LOADING_SCREEN_ASPECT = 1.7777778f;
// The activity every model of a preview plays unless told otherwise.
#define ZARN_PREVIEW_DEFAULT_ACTIVITY "ACT_ZARN_IDLE"
// The sequence a preview starts with.
#define ZARN_PREVIEW_DEFAULT_SEQUENCE "idle"
// The set name of the hero's default wearables, and the style name when a style has none.
#define ZARN_PREVIEW_STOCK_ITEM_SET "Stock Item Set"
#define ZARN_PREVIEW_DEFAULT_STYLE_NAME "default"

// The lists of asset modifiers a style keeps, in this order; each has its `visuals` type.
enum EZarnPreviewAssetList
{
	ZARN_PREVIEW_ASSET_ENTITY_MODEL = 0,	  // "entity_model": a unit's model by the unit's name
	ZARN_PREVIEW_ASSET_HERO_MODEL_CHANGE,	  // "hero_model_change": the hero's own model
	ZARN_PREVIEW_ASSET_ADDITIONAL_WEARABLE, // "additional_wearable": another model on the hero
	ZARN_PREVIEW_ASSET_COURIER,			  // "courier": the walking courier, by team word
	ZARN_PREVIEW_ASSET_COURIER_FLYING,	  // "courier_flying": the flying courier, by team word
	ZARN_PREVIEW_ASSET_PET,				  // "pet"
	ZARN_PREVIEW_ASSET_ACTIVITY,			  // "activity": an activity played instead of another
	ZARN_PREVIEW_ASSET_LIST_COUNT,
};
// The `visuals` type of a list ("entity_model", ...).
const char *ZarnPreviewAssetListType(int nList);

// A "visuals" entry that swaps an asset: the asset that is replaced and its replacement.
struct ZarnPreviewAssetModifier_t
{
	CUtlString m_Asset;
	CUtlString m_Replacement;
};

// Where a particle's control point is bound, from the particle's list named "preview".
enum EZarnPreviewParticleTarget
{
	ZARN_PARTICLE_TARGET_NONE = 0,	  // types 2 and 8, or a model the set does not have
	ZARN_PARTICLE_TARGET_PARENT,	  // "parent": the model that owns the particle
	ZARN_PARTICLE_TARGET_NAMED_MODEL, // another model of the set, by name
};

struct ZarnPreviewParticleTarget_t
{
	CUtlString m_Name;	  // the entry's name: "parent" or a model of the set
	int m_nType = 0;	  // the entry's "type"
	int m_nControlPoint = 0; // the entry's "control_point", by default its place in the list
	EZarnPreviewParticleTarget m_eTarget = ZARN_PARTICLE_TARGET_NONE;
};

// "particle", "particle_create", "particle_snapshot": a particle system of the item.
struct ZarnPreviewParticleSystem_t
{
	CUtlString m_Type;
	CUtlString m_Particle;	 // the system shown: the replacement, or the asset when there is none
	CUtlString m_Replaces;	 // the system it replaces ("" for a system of its own)
	CUtlString m_Attachment; // the "attachment" it is created on ("" for the model's origin)
	CUtlString m_OwnerModel; // the model that owns it (the item's model)
	bool m_bDefaultItem = false; // it comes with one of the hero's default items
	CUtlVector<ZarnPreviewParticleTarget_t> m_Targets;
};

// "particle_control_point": a control point's value at creation.
struct ZarnPreviewControlPointModifier_t
{
	CUtlString m_Particle;	// "asset"
	int m_nControlPoint = 0; // "control_point_number"
	Vector m_vValue;		// "cp_position", "x y z"
};

// "model_skin": the skin (material group) of the item's model.
struct ZarnPreviewModelSkinModifier_t
{
	int m_nSkin = 0;
};

// The modifiers of one style of an item.
class CZarnPreviewStyle
{
public:
	// The first entry of a list whose asset equals `pszAsset` (case ignored), or null.
	const ZarnPreviewAssetModifier_t *FindAsset(int nList, const char *pszAsset) const;
	// The replacement of a list's first entry ("" when the list is empty).
	const char *FirstReplacement(int nList) const;

	CUtlString m_Name;
	CUtlVector<ZarnPreviewAssetModifier_t> m_AssetModifiers[ZARN_PREVIEW_ASSET_LIST_COUNT];
	CUtlVector<ZarnPreviewParticleSystem_t> m_Particles;
	CUtlVector<ZarnPreviewControlPointModifier_t> m_ControlPoints;
	CUtlVector<ZarnPreviewModelSkinModifier_t> m_Skins;
};

// One item of the set: its keys, its slot, the model chosen for it and its styles.
class CZarnPreviewItem
{
public:
	CZarnPreviewItem();
	~CZarnPreviewItem();
	CZarnPreviewItem(const CZarnPreviewItem &) = delete;
	CZarnPreviewItem &operator=(const CZarnPreviewItem &) = delete;

	// Takes a copy of the keys and reads the styles from their `visuals`.
	void SetKeys(const KeyValues *pKeys);
	KeyValues *GetKeys() const { return m_pKeys.get(); }
	int GetStyleCount() const { return (int)m_Styles.size(); }
	// A style by index; an index out of range gives the first.
	const CZarnPreviewStyle &GetStyle(int nStyle) const;
	// True when an "entity_model" asset of any style holds "_variant_" (case ignored).
	bool HasVariantEntity() const;

	CUtlString m_SlotName;	 // the hero slot's name ("" for an item of no slot)
	CUtlString m_SlotKey;	 // the entry of the preview tree: "Item%d" or "ItemSlotAny"
	uint32 m_nItemNumber = 0; // the test item number the entry is known by
	CUtlString m_ModelPath;	 // the model chosen for the item ("" for an item without one)
	int m_nModelIndex = 0;	 // which "model_player%i" it came from
	bool m_bSubmission = false; // the submission's own item
	bool m_bDefault = false;	// the hero's default item of its slot

private:
	std::unique_ptr<KeyValues> m_pKeys;
	CUtlVector<CZarnPreviewStyle> m_Styles;
};

// A wearable in the scene: a model on the hero (bone-merged), with the slot it stands in.
// Additional wearables are named "additional_wearable%i".
struct ZarnPreviewWearableModel_t
{
	CUtlString m_Name;		// the slot's name, or "additional_wearable%i"
	CUtlString m_ModelPath;
	int m_nItem = -1;		// the item it comes from
	int m_nSkin = 0;		// the material group of the item's "model_skin"
	bool m_bSubmission = false; // the model under import
};

// A summoned unit in the scene: its name and model.
struct ZarnPreviewSummonModel_t
{
	CUtlString m_Unit;
	CUtlString m_ModelPath;
};

// What the caller knows of a slot when it asks for the preview items: the submission's own slot
// (its index among the hero's slots), or -1 with the slot's name and the model the author chose
// for it ("" for the slot's default item).
struct ZarnPreviewSlotChoice_t
{
	int m_nSlotIndex = -1;
	CUtlString m_SlotName;
	CUtlString m_ModelPath;
};

class IZarnPreviewModelSetListener
{
public:
	// After any change of the set.
	virtual void OnPreviewModelSetChanged(CZarnPreviewModelSet *pSet) = 0;

protected:
	~IZarnPreviewModelSetListener() = default;
};

class CZarnPreviewModelSet
{
public:
	// Models are looked up through `pResources` (null: the scene's default resources).
	explicit CZarnPreviewModelSet(CToolSceneResources *pResources = nullptr);
	~CZarnPreviewModelSet();
	CZarnPreviewModelSet(const CZarnPreviewModelSet &) = delete;
	CZarnPreviewModelSet &operator=(const CZarnPreviewModelSet &) = delete;

	// --- What the scene shows -----------------------------------------------------------------

	// The model under preview, the hero or unit it stands on (an index of the hero table, -1 for
	// none), the submission's slot among the hero's slots (-1 for none) and the style. Discards
	// the author's wearable choices. False, with nothing changed, when no compiled model exists
	// at the path.
	bool SetModel(const char *pszModelPath, int nHeroIndex, int nSlot, int nStyle = 0);
	// The submission's own item keys (copied; null forgets them), whether a courier is shown
	// flying, and which "model_player%i" the model under preview is (-1: none of them).
	void SetPreviewItemKeys(const KeyValues *pItemKeys, bool bFlyingCourier, int nModelIndex);
	// Models chosen by the author for other slots of the hero: parallel lists of slot names and
	// model paths (an empty path: the slot's default).
	void SelectWearables(const CUtlVector<CUtlString> &slots, const CUtlVector<CUtlString> &models);
	void ResetWearablesToDefault();
	void SetPreviewMode(int nMode);
	int GetPreviewMode() const { return m_nMode; }
	// Courier team (0 sunward, 1 moonward) and type (0 walking, 1 flying); ward type (0
	// observer, 1 sentry).
	void SetCourierTeam(int nTeam);
	void SetCourierType(int nType);
	void SetWardType(int nType);
	int GetCourierTeam() const { return m_nCourierTeam; }
	int GetCourierType() const { return m_nCourierType; }
	int GetWardType() const { return m_nWardType; }
	void SetCurrentStyle(int nStyle);
	int GetCurrentStyle() const { return m_nStyle; }
	// The styles of the submission's item (1 when it has none of its own).
	int GetStyleCount() const;
	const char *GetStyleName(int nStyle) const;

	// Display options the scenes follow.
	void SetShowLod1(bool bShow);
	void SetShowParticles(bool bShow);
	void SetShowDefaultParticles(bool bShow);
	void SetShowReferenceModel(bool bShow);
	void SetHideHero(bool bHide);
	void SetHideParticles(bool bHide);
	void SetShowSummons(bool bShow);
	bool IsShowingLod1() const { return m_bShowLod1; }
	bool IsShowingParticles() const { return m_bShowParticles && !m_bHideParticles; }
	bool IsShowingDefaultParticles() const { return m_bShowDefaultParticles; }
	bool IsShowingReferenceModel() const { return m_bShowReferenceModel; }
	bool IsHeroHidden() const { return m_bHideHero; }
	bool IsShowingSummons() const { return m_bShowSummons; }

	// --- Animation ------------------------------------------------------------------------------

	// The sequence names of the subject's model, in the model's order.
	void GetAnimationList(CUtlVector<CUtlString> &out) const;
	void SetSequence(const char *pszSequence);
	void SetPlaybackSpeed(float flSpeed);
	// Stops playback at the frame; a negative frame plays on.
	void SetFrame(int nFrame);
	const CUtlString &GetSequence() const { return m_Sequence; }
	float GetPlaybackSpeed() const { return m_flSpeed; }
	int GetFrame() const { return m_nFrame; }
	bool IsPlaying() const { return m_nFrame < 0; }

	// The compiled offset and angles of attachment n of the model under preview; false when it
	// has no such attachment.
	bool FindDefaultAttachmentOffset(int nAttachment, Vector &offset, QAngle &angles) const;

	void AddListener(IZarnPreviewModelSetListener *pListener);
	void RemoveListener(IZarnPreviewModelSetListener *pListener);

	// --- The lists ------------------------------------------------------------------------------

	const CUtlString &GetModelPath() const { return m_ModelPath; }
	// The hero of the scene (null for none: the subject stands alone).
	const hero_t *GetHero() const;
	int GetHeroIndex() const { return m_nHeroIndex; }
	// The hero's name ("" when the subject stands alone).
	const CUtlString &GetHeroName() const { return m_HeroName; }
	int GetSlot() const { return m_nSlot; }
	// The model standing in the middle of the scene: the hero (modes 0, 1) or the item, courier
	// or ward of the other modes.
	const CUtlString &GetSubjectModel() const { return m_SubjectModel; }
	// The skin of the subject's model.
	int GetSubjectSkin() const { return m_nSubjectSkin; }
	// True when the subject is the model under preview (not a hero it stands on).
	bool IsSubjectTheModel() const { return m_bSubjectIsModel; }
	int GetItemCount() const { return (int)m_Items.size(); }
	const CZarnPreviewItem *GetItem(int nIndex) const;
	// The submission's own item, or null.
	const CZarnPreviewItem *GetSubmissionItem() const;
	const CUtlVector<ZarnPreviewWearableModel_t> &GetWearableModels() const { return m_Wearables; }
	const CUtlVector<ZarnPreviewSummonModel_t> &GetSummonModels() const { return m_Summons; }
	// The particle systems of every item's current style (listed; this build draws none).
	const CUtlVector<ZarnPreviewParticleSystem_t> &GetParticleSystems() const { return m_Particles; }
	const CUtlVector<ZarnPreviewControlPointModifier_t> &GetControlPointModifiers() const { return m_ControlPoints; }
	// The slots the hero shows wearables in (not hidden, the submission's persona), in order.
	void GetWearableSlots(CUtlVector<const hero_slot_t *> &out) const;
	// The author's choices as given to SelectWearables: slots and models, parallel.
	const CUtlVector<CUtlString> &GetChosenSlots() const { return m_ChosenSlots; }
	const CUtlVector<CUtlString> &GetChosenModels() const { return m_ChosenModels; }
	// The slot choices of the current state: the submission's slot and the author's choices.
	void GetSlotChoices(CUtlVector<ZarnPreviewSlotChoice_t> &out) const;
	// The models the picker offers for a slot: the slot's default item's model first, then every
	// other item of items_game for the hero and slot, each once.
	void GetSlotModels(const char *pszSlotName, CUtlVector<CUtlString> &out) const;

	// --- Item keys ------------------------------------------------------------------------------

	// Makes the preview items of the hero for the slot choices, one per slot: an item whose slot
	// key ("Item%d" with the slot's index in the slot table) is already in `items` replaces it.
	// Items are numbered from the test item base on, by the count of items so far. The
	// submission's own slot takes a copy of `pSubmissionKeys` when given, otherwise keys made by
	// the item key generation from `pItemDef`. Problems are logged and the slot left out.
	static void BuildPreviewItems(const hero_t *pHero, const CUtlVector<ZarnPreviewSlotChoice_t> &choices, const KeyValues *pSubmissionKeys,
		CMintyardCfg_ZarnItemDef *pItemDef, CUtlVector<std::unique_ptr<CZarnPreviewItem>> &items);
	// The test item of a submission: keys made by the item key generation with the name
	// "new_<slot>_item" and a test description, numbered by `nItemCount`, under "Item%d" with the
	// template's slot (or "ItemSlotAny"). Null, logged, when the keys cannot be made.
	static std::unique_ptr<CZarnPreviewItem> BuildSubmissionTestItem(CMintyardCfg_ZarnItemDef *pItemDef, int nItemCount);
	// The items as a tree: one subkey per item, named by its slot key, holding a copy of its keys.
	static void WritePreviewItems(const CUtlVector<std::unique_ptr<CZarnPreviewItem>> &items, KeyValues *pOut);

private:
	void Rebuild();
	void Notify();
	bool ModelExists(const char *pszPath) const;
	CUtlString ChooseSubjectModel(const CZarnPreviewItem *pItem) const;

	CToolSceneResources *m_pResources;
	CUtlVector<IZarnPreviewModelSetListener *> m_Listeners;

	// State given.
	int m_nMode = ZARN_PREVIEW_MODE_HERO;
	int m_nRequestedHeroIndex = -1;
	int m_nHeroIndex = -1;
	CUtlString m_HeroName;
	int m_nSlot = -1;
	int m_nStyle = 0;
	int m_nCourierTeam = 0;
	int m_nCourierType = 0;
	int m_nWardType = 0;
	int m_nModelIndex = 0;
	CUtlString m_ModelPath;
	std::unique_ptr<KeyValues> m_pSubmissionKeys;
	CUtlVector<CUtlString> m_ChosenSlots;
	CUtlVector<CUtlString> m_ChosenModels;
	bool m_bShowLod1 = false;
	bool m_bShowParticles = true;
	bool m_bShowDefaultParticles = true;
	bool m_bShowReferenceModel = false;
	bool m_bHideHero = false;
	bool m_bHideParticles = false;
	bool m_bShowSummons = false;
	CUtlString m_Sequence = ZARN_PREVIEW_DEFAULT_SEQUENCE;
	float m_flSpeed = 1.0f;
	int m_nFrame = -1;

	// Worked out by Rebuild.
	CUtlVector<std::unique_ptr<CZarnPreviewItem>> m_Items;
	CUtlString m_SubjectModel;
	int m_nSubjectSkin = 0;
	bool m_bSubjectIsModel = false;
	CUtlVector<ZarnPreviewWearableModel_t> m_Wearables;
	CUtlVector<ZarnPreviewSummonModel_t> m_Summons;
	CUtlVector<ZarnPreviewParticleSystem_t> m_Particles;
	CUtlVector<ZarnPreviewControlPointModifier_t> m_ControlPoints;
};
