// Configuration elements: what the author answered to a template. The session is the root of
// one tree of elements; every element points at the read-only template element it instantiates.
//
// A child appends itself to its parent's children when made and takes itself out when destroyed.
// The owner of the typed list that holds a child (a model's levels, a set's images) deletes it.
// A change of a value travels to the parent and every ancestor in turn, unless notifications
// are suppressed by the one process-wide counter.
#pragma once

#include "core/keyvalues3.h"
#include "core/utlstring.h"
#include "core/utlvector.h"
#include "mintyardtoolutils/core/importmessages.h"
#include "mintyardtoolutils/core/mintyardtemplate.h"
#include "mintyardtoolutils/core/portraitrecord.h"

class CMintyardCfgElementContainer;
class CMintyardImportSession;
class CMintyardCfg_ZarnModel;

// One source file of a submission zip: where it lies and its name inside the zip.
struct MintyardSubmitFile_t
{
	CUtlString source;
	CUtlString zipName;
};

// State of one session document being written.
struct SaveContext
{
	bool isZip = false;
	CKeyValues3Context *pContext = nullptr;
	CUtlVector<MintyardSubmitFile_t> files;
	CUtlVector<CUtlString> idStack;
};

// How file keys are read: with rewritePaths, non-empty names are joined to basePath.
struct LoadContext
{
	bool rewritePaths = false;
	CUtlString basePath;
};

class CMintyardCfgElement
{
public:
	CMintyardCfgElement(CMintyardCfgElementContainer *pParent, const CMintyardTemplateElement *pTemplateElement);
	virtual ~CMintyardCfgElement();
	CMintyardCfgElement(const CMintyardCfgElement &) = delete;
	CMintyardCfgElement &operator=(const CMintyardCfgElement &) = delete;

	virtual CMintyardCfgElementContainer *AsContainer() { return nullptr; }
	virtual CMintyardImportSession *AsSession() { return nullptr; }
	// The value of a named property for template expressions; false for an unknown name.
	virtual bool GetExpressionProperty(const char *pszName, CUtlString &out) const;
	virtual void Validate(ImportMessageList &list, bool bRelaxed) const = 0;
	virtual bool IsEmpty() const = 0;

	const CMintyardCfgElementContainer *AsContainer() const { return const_cast<CMintyardCfgElement *>(this)->AsContainer(); }
	const CMintyardImportSession *AsSession() const { return const_cast<CMintyardCfgElement *>(this)->AsSession(); }

	CMintyardCfgElementContainer *GetParent() const { return m_pParent; }
	const CMintyardTemplateElement *GetTemplateElement() const { return m_pTemplateElement; }
	const CUtlString &GetTemplateId() const;
	CMintyardImportSession *GetRootSession() const;
	// The nearest model above this element, or null.
	CMintyardCfg_ZarnModel *GetParentModel() const;

	// Reports a change to the parent and each ancestor, unless suppressed.
	void ReportChange();

	// One process-wide counter: true adds one, false takes one off.
	static void SetChangeNotificationsSuppressed(bool bSuppressed);
	static bool AreChangeNotificationsSuppressed();
	static int GetSuppressionCount();

protected:
	// The optional walk: true when this element or an ancestor below the top is empty and
	// optional, which excuses a missing input.
	bool IsExcusedByOptional() const;
	// The first argument of most messages: the template element's display name token.
	const char *TemplateName() const;

private:
	friend class CMintyardCfgElementContainer;
	CMintyardCfgElementContainer *m_pParent;
	const CMintyardTemplateElement *m_pTemplateElement;
	static int s_nSuppressNotifications;
};

// Suppresses change notifications while it lives.
class CMintyardSuppressChangeNotifications
{
public:
	CMintyardSuppressChangeNotifications() { CMintyardCfgElement::SetChangeNotificationsSuppressed(true); }
	~CMintyardSuppressChangeNotifications() { CMintyardCfgElement::SetChangeNotificationsSuppressed(false); }
	CMintyardSuppressChangeNotifications(const CMintyardSuppressChangeNotifications &) = delete;
	CMintyardSuppressChangeNotifications &operator=(const CMintyardSuppressChangeNotifications &) = delete;
};

class CMintyardCfgElementContainer : public CMintyardCfgElement
{
public:
	CMintyardCfgElementContainer(CMintyardCfgElementContainer *pParent, const CMintyardTemplateElement *pTemplateElement);
	~CMintyardCfgElementContainer() override;

	CMintyardCfgElementContainer *AsContainer() override { return this; }
	void Validate(ImportMessageList &, bool) const override {}
	bool IsEmpty() const override;
	// A descendant changed.
	virtual void OnChildChanged(CMintyardCfgElement *) {}

	const CUtlVector<CMintyardCfgElement *> &GetChildren() const { return m_Children; }

private:
	friend class CMintyardCfgElement;
	CUtlVector<CMintyardCfgElement *> m_Children;
};

class CMintyardCfgString : public CMintyardCfgElement
{
public:
	using CMintyardCfgElement::CMintyardCfgElement;

	void Validate(ImportMessageList &list, bool bRelaxed) const override;
	bool IsEmpty() const override { return m_Value.empty(); }

	CUtlString GetValue() const { return m_Value; }
	const CUtlString &Value() const { return m_Value; }
	// Replaces the value and reports the change, even when the text is the same.
	void SetValue(const char *pszText);

protected:
	CUtlString m_Value;
};

// A name for files and identifiers: lower-case letters, digits and '_' only.
class CMintyardCfgSafeString : public CMintyardCfgString
{
public:
	using CMintyardCfgString::CMintyardCfgString;
	void Validate(ImportMessageList &list, bool bRelaxed) const override;
	static bool IsSafeText(const char *pszText);
};

class CMintyardCfgFilename : public CMintyardCfgElement
{
public:
	using CMintyardCfgElement::CMintyardCfgElement;

	void Validate(ImportMessageList &list, bool bRelaxed) const override;
	bool IsEmpty() const override { return m_Value.empty(); }
	// Writes "source_filename" into the table.
	virtual bool SaveToKV3(SaveContext &ctx, KeyValues3 *pTable, ImportMessageList &list) const;
	virtual bool LoadFromKV3(const LoadContext &ctx, const KeyValues3 *pTable, ImportMessageList &list);
	// A missing input is an error rather than a warning.
	virtual bool IsHardRequired() const { return false; }

	CUtlString GetValue() const { return m_Value; }
	const CUtlString &Value() const { return m_Value; }
	void SetValue(const char *pszText);

	// Writes a file key: the path as it stands, or inside a zip its name there (and the file is
	// added to the context's list). Reads one back, rewriting it against the base path.
	void SaveFileKey(SaveContext &ctx, KeyValues3 *pTable, const char *pszKey) const;
	void LoadFileKey(const LoadContext &ctx, const KeyValues3 *pTable, const char *pszKey);

protected:
	// The shared file rule.
	void ValidateFile(ImportMessageList &list) const;

	CUtlString m_Value;
};

class CMintyardCfg_ZarnMesh : public CMintyardCfgFilename
{
public:
	using CMintyardCfgFilename::CMintyardCfgFilename;
	~CMintyardCfg_ZarnMesh() override;

	void Validate(ImportMessageList &list, bool bRelaxed) const override;
	bool SaveToKV3(SaveContext &ctx, KeyValues3 *pTable, ImportMessageList &list) const override;
	bool LoadFromKV3(const LoadContext &ctx, const KeyValues3 *pTable, ImportMessageList &list) override;
	bool IsHardRequired() const override { return true; }

	const CMintyardTemplate_ZarnMesh *GetMeshTemplate() const { return static_cast<const CMintyardTemplate_ZarnMesh *>(GetTemplateElement()); }

	CUtlVector<CMintyardCfg_ZarnMesh *> m_ExtraMeshes; // owned; their parent is the model
};

class CMintyardCfg_BaseZarnModel : public CMintyardCfgElementContainer
{
public:
	CMintyardCfg_BaseZarnModel(CMintyardCfgElementContainer *pParent, const CMintyardTemplate_BaseZarnModel *pTemplate);

	bool GetExpressionProperty(const char *pszName, CUtlString &out) const override;

	// "items/<directory>/<import name>/<import name><suffix>".
	CUtlString GetModelBasePath() const;
	// "models/<base>.zmdl".
	CUtlString GetZmdlName() const;
	virtual const char *GetModelNameSuffix() const { return ""; }

	// The portrait record: written to session documents and into the item's keys.
	CZarnPortraitRecord m_PortraitRecord;
	CUtlVector<CUtlString> m_WearableSlots;
	CUtlVector<CUtlString> m_WearableModels;
};

class CMintyardCfg_ZarnMaterial;

class CMintyardCfg_ZarnModel : public CMintyardCfg_BaseZarnModel
{
public:
	class CAnim;
	class CAnimBundle;
	class CAttach;
	class CParticleSnapshot;

	CMintyardCfg_ZarnModel(CMintyardCfgElementContainer *pParent, const CMintyardTemplate_ZarnModel *pTemplate);
	~CMintyardCfg_ZarnModel() override;

	bool GetExpressionProperty(const char *pszName, CUtlString &out) const override;
	const char *GetModelNameSuffix() const override;
	const CMintyardTemplate_ZarnModel *GetModelTemplate() const { return static_cast<const CMintyardTemplate_ZarnModel *>(GetTemplateElement()); }

	// The mesh of level L (with an extra index E >= 0): a node name on the normal road, a file
	// name on the legacy road (chosen by "zarn_mintyard_legacy_model_import").
	CUtlString GetMeshName(int nLevel, int nExtraIndex = -1) const;

	bool SaveToKV3(SaveContext &ctx, KeyValues3 *pTable, ImportMessageList &list) const;
	bool LoadFromKV3(const LoadContext &ctx, const KeyValues3 *pTable, ImportMessageList &list);

	CUtlVector<CMintyardCfg_ZarnMesh *> m_Lods;
	CUtlVector<CAnim *> m_Anims;
	CUtlVector<CAnimBundle *> m_Bundles;
	CUtlVector<CAttach *> m_Attaches;
	CUtlVector<CMintyardCfg_ZarnMaterial *> m_Materials;
	CUtlVector<CParticleSnapshot *> m_Snapshots;
	bool m_bHasCustomSkeleton = false;
};

class CMintyardCfg_ZarnModel::CAnim : public CMintyardCfgFilename
{
public:
	using CMintyardCfgFilename::CMintyardCfgFilename;
	void Validate(ImportMessageList &list, bool bRelaxed) const override;
	const CMintyardTemplate_ZarnModel::CAnim *GetAnimTemplate() const { return static_cast<const CMintyardTemplate_ZarnModel::CAnim *>(GetTemplateElement()); }
};

class CMintyardCfg_ZarnModel::CAnimBundle : public CMintyardCfgElementContainer
{
public:
	CAnimBundle(CMintyardCfgElementContainer *pParent, const CMintyardTemplate_ZarnModel::CAnimBundle *pTemplate);
	~CAnimBundle() override;
	const CMintyardTemplate_ZarnModel::CAnimBundle *GetBundleTemplate() const { return static_cast<const CMintyardTemplate_ZarnModel::CAnimBundle *>(GetTemplateElement()); }
	bool SaveToKV3(SaveContext &ctx, KeyValues3 *pTable, ImportMessageList &list) const;
	bool LoadFromKV3(const LoadContext &ctx, const KeyValues3 *pTable, ImportMessageList &list);

	CUtlVector<CAnim *> m_Anims;
};

class CMintyardCfg_ZarnModel::CAttach : public CMintyardCfgString
{
public:
	CAttach(CMintyardCfgElementContainer *pParent, const CMintyardTemplate_ZarnModel::CAttach *pTemplate);
	const CMintyardTemplate_ZarnModel::CAttach *GetAttachTemplate() const { return static_cast<const CMintyardTemplate_ZarnModel::CAttach *>(GetTemplateElement()); }
	bool SaveToKV3(SaveContext &ctx, KeyValues3 *pTable, ImportMessageList &list) const;
	bool LoadFromKV3(const LoadContext &ctx, const KeyValues3 *pTable, ImportMessageList &list);

	float m_flOffset[3] = { 0, 0, 0 };
	float m_flRotation[3] = { 0, 0, 0 };
};

class CMintyardCfg_ZarnModel::CParticleSnapshot : public CMintyardCfgFilename
{
public:
	using CMintyardCfgFilename::CMintyardCfgFilename;
	bool GetExpressionProperty(const char *pszName, CUtlString &out) const override;
	const CMintyardTemplate_ZarnModel::CParticleSnapshot *GetSnapshotTemplate() const
	{
		return static_cast<const CMintyardTemplate_ZarnModel::CParticleSnapshot *>(GetTemplateElement());
	}
	// "particles/models/<base><suffix>.zsnap".
	CUtlString GetSnapshotPath() const;
};

class CMintyardCfg_ZarnMaterial : public CMintyardCfgElementContainer
{
public:
	enum { TEXTURE_COUNT = 11 };

	CMintyardCfg_ZarnMaterial(CMintyardCfgElementContainer *pParent, const CMintyardTemplate_ZarnMaterial *pTemplate);
	~CMintyardCfg_ZarnMaterial() override;
	const CMintyardTemplate_ZarnMaterial *GetMaterialTemplate() const { return static_cast<const CMintyardTemplate_ZarnMaterial *>(GetTemplateElement()); }
	bool SaveToKV3(SaveContext &ctx, KeyValues3 *pTable, ImportMessageList &list) const;
	bool LoadFromKV3(const LoadContext &ctx, const KeyValues3 *pTable, ImportMessageList &list);

	CMintyardCfgFilename *m_pTextures[TEXTURE_COUNT] = {};
};

class CMintyardCfg_ZarnImageSet : public CMintyardCfgElementContainer
{
public:
	class CImage;
	class CEmoticon;
	class CEmoticonImage;

	CMintyardCfg_ZarnImageSet(CMintyardCfgElementContainer *pParent, const CMintyardTemplate_ZarnImageSet *pTemplate);
	~CMintyardCfg_ZarnImageSet() override;
	bool GetExpressionProperty(const char *pszName, CUtlString &out) const override;
	const CMintyardTemplate_ZarnImageSet *GetImageSetTemplate() const { return static_cast<const CMintyardTemplate_ZarnImageSet *>(GetTemplateElement()); }
	bool SaveToKV3(SaveContext &ctx, KeyValues3 *pTable, ImportMessageList &list) const;
	bool LoadFromKV3(const LoadContext &ctx, const KeyValues3 *pTable, ImportMessageList &list);

	CUtlVector<CImage *> m_Images;
	CUtlVector<CEmoticon *> m_Emoticons;
	int32 m_nEmoticonMinId = -1;
	int32 m_nEmoticonMaxId = -1;
};

class CMintyardCfg_ZarnImageSet::CImage : public CMintyardCfgFilename
{
public:
	using CMintyardCfgFilename::CMintyardCfgFilename;
	bool GetExpressionProperty(const char *pszName, CUtlString &out) const override;
	void Validate(ImportMessageList &list, bool bRelaxed) const override;
	const CMintyardTemplate_ZarnImageSet::CImage *GetImageTemplate() const { return static_cast<const CMintyardTemplate_ZarnImageSet::CImage *>(GetTemplateElement()); }
};

class CMintyardCfg_ZarnImageSet::CEmoticonImage : public CMintyardCfgFilename
{
public:
	using CMintyardCfgFilename::CMintyardCfgFilename;
	void Validate(ImportMessageList &list, bool bRelaxed) const override;
};

class CMintyardCfg_ZarnImageSet::CEmoticon : public CMintyardCfgElementContainer
{
public:
	CEmoticon(CMintyardCfgElementContainer *pParent, const CMintyardTemplate_ZarnImageSet::CEmoticon *pTemplate);
	~CEmoticon() override;
	bool SaveToKV3(SaveContext &ctx, KeyValues3 *pTable, ImportMessageList &list) const;
	bool LoadFromKV3(const LoadContext &ctx, const KeyValues3 *pTable, ImportMessageList &list);

	CEmoticonImage *m_pImage = nullptr;
	CMintyardCfgString *m_pKeyword = nullptr;
	CMintyardCfgString *m_pDefaultFrame = nullptr;
};

class CMintyardCfg_ZarnSoundSet : public CMintyardCfgElementContainer
{
public:
	class CSound : public CMintyardCfgFilename
	{
	public:
		using CMintyardCfgFilename::CMintyardCfgFilename;
	};

	CMintyardCfg_ZarnSoundSet(CMintyardCfgElementContainer *pParent, const CMintyardTemplate_ZarnSoundSet *pTemplate);
	~CMintyardCfg_ZarnSoundSet() override;
	bool SaveToKV3(SaveContext &ctx, KeyValues3 *pTable, ImportMessageList &list) const;
	bool LoadFromKV3(const LoadContext &ctx, const KeyValues3 *pTable, ImportMessageList &list);

	CUtlVector<CSound *> m_Sounds;
};

class CMintyardCfg_MiscData : public CMintyardCfgString
{
public:
	using CMintyardCfgString::CMintyardCfgString;
	bool SaveToKV3(SaveContext &ctx, KeyValues3 *pTable, ImportMessageList &list) const;
	bool LoadFromKV3(const LoadContext &ctx, const KeyValues3 *pTable, ImportMessageList &list);
};

// The generated item definition. Its state belongs to the item key generation; it never counts
// as an input of the author. It holds the request that the Item ID page fills when it is left,
// and the keys made from it.
class CMintyardCfg_ZarnItemDef : public CMintyardCfgElementContainer
{
public:
	CMintyardCfg_ZarnItemDef(CMintyardCfgElementContainer *pParent, const CMintyardTemplate_ZarnItemDef *pTemplate);
	~CMintyardCfg_ZarnItemDef() override;
	bool IsEmpty() const override { return true; }
	const CMintyardTemplate_ZarnItemDef *GetItemDefTemplate() const { return static_cast<const CMintyardTemplate_ZarnItemDef *>(GetTemplateElement()); }
	// Frees the result and puts the request back to a new item.
	void ResetRequest();

	uint32 m_nDefIndex = 0;			 // 0 until reserved
	CUtlString m_ItemName;			 // display name typed by the author
	CUtlString m_ItemDescription;	 // description typed by the author
	KeyValues *m_pSourceKeys = nullptr; // owned: keys of the existing item to start from
	KeyValues *m_pResultKeys = nullptr; // owned: the result
	bool m_bIsNewItem = true;		 // false for an update
	bool m_bReserveFromGC = false;	 // reserve the index at the game coordinator
	bool m_bSetPaymentRule = false;	 // add or update the payment rule
};

// Depth first by template id, case ignored: the root, then each child in order.
CMintyardCfgElement *FindElement(CMintyardCfgElement *pRoot, const char *pszId);
// The element's Validate, then each child in order, recursively through containers.
void ValidateElements(const CMintyardCfgElement *pElement, ImportMessageList &list, bool bRelaxed);

// The default file of an animation: true with the template's "default" when that is set and the
// nearest model has no custom skeleton. pOut may be null.
bool GetDefaultFile(const CMintyardCfg_ZarnModel::CAnim *pAnim, CUtlString *pOut);
bool IsAnimAbsent(const CMintyardCfg_ZarnModel::CAnim *pAnim);
bool IsBundleAbsent(const CMintyardCfg_ZarnModel::CAnimBundle *pBundle);

// The extension of a path without the dot ("" when none), as it is written.
CUtlString GetPathExtension(const char *pszPath);
