// CMintyardImportSession: the one object the import wizard works on. It owns the template
// catalogue, the template in use, the tree of configuration elements built from it, the import
// name, the output roots and the listeners that hear of every change.
#pragma once

#include "core/utlstring.h"
#include "core/utlvector.h"
#include "mintyardtoolutils/core/cfgelements.h"
#include "mintyardtoolutils/core/publishedfileinfo.h"
#include "mintyardtoolutils/core/templatecatalogue.h"

class IMintyardImportSessionListener
{
public:
	virtual void OnSessionChanged() = 0;

protected:
	~IMintyardImportSessionListener() = default;
};

class CMintyardImportSession : public CMintyardCfgElementContainer
{
public:
	CMintyardImportSession();
	~CMintyardImportSession() override;

	CMintyardImportSession *AsSession() override { return this; }
	// The name rule, on the import name.
	void Validate(ImportMessageList &list, bool bRelaxed) const override;
	// Calls every listener, in order of registration.
	void OnChildChanged(CMintyardCfgElement *pElement) override;

	// Clears the tree, keeps the template and builds the tree for it.
	void SetTemplate(const CMintyardTemplate *pTemplate);
	// Frees the models, image sets and item definitions, empties the name and resets the
	// scratch folder. Sound sets and loose strings stay, and so does the template.
	void ClearElements();
	void SetSearchPaths(const char *pszGameRoot, const char *pszContentRoot);
	void SetSubmissionDetails(const PublishedFileInfo_t *pDetails);
	const PublishedFileInfo_t *GetSubmissionDetails() const { return &m_Submission; }
	CMintyardCfgSafeString *GetNameElement() const { return m_pName; }
	const CMintyardTemplate *GetTemplate() const { return m_pCurrentTemplate; }

	void AddListener(IMintyardImportSessionListener *pListener);
	void RemoveListener(IMintyardImportSessionListener *pListener);

	// Empties the list, then validates the whole tree into it.
	void ValidateAll(ImportMessageList &list, bool bRelaxed) const;

	CMintyardCfg_ZarnModel *FindModelById(const char *pszId) const;
	const CMintyardTemplate_ZarnModel *GetModelTemplate(int nIndex) const;
	void GetModelZmdlName(int nIndex, CUtlString &out) const;
	bool HasPortraitPage() const;
	bool HasPreviewImageSets() const;

	const CUtlString &GetContentRoot() const { return m_ContentRoot; }
	const CUtlString &GetGameRoot() const { return m_GameRoot; }
	const CUtlString &GetScratchDir() const { return m_ScratchDir; }
	const CUtlString &GetCompileLabel() const { return m_CompileLabel; }
	void SetCompileLabel(const char *pszLabel) { m_CompileLabel = pszLabel ? pszLabel : ""; }

	// The templates the author can choose from: read from files and built by code, both owned.
	CMintyardTemplateCatalogue &GetCatalogue() { return m_Catalogue; }
	const CMintyardTemplateCatalogue &GetCatalogue() const { return m_Catalogue; }

	PublishedFileInfo_t m_Submission;
	bool m_bSourceControlEdit = false;
	CUtlVector<IMintyardImportSessionListener *> m_Listeners;
	CUtlVector<CMintyardCfg_ZarnModel *> m_Models;
	CUtlVector<CMintyardCfg_ZarnImageSet *> m_ImageSets;
	CUtlVector<CMintyardCfg_ZarnSoundSet *> m_SoundSets;
	CUtlVector<CMintyardCfg_ZarnItemDef *> m_ItemDefs;
	CUtlVector<CMintyardCfg_MiscData *> m_MiscData;

private:
	CMintyardTemplateCatalogue m_Catalogue;
	CMintyardCfgSafeString *m_pName = nullptr;
	CUtlString m_ContentRoot;
	CUtlString m_GameRoot;
	CUtlString m_ScratchDir;
	CUtlString m_CompileLabel;
	const CMintyardTemplate *m_pCurrentTemplate = nullptr;
};

// The name rule on any text: 1 to 50 bytes. Adds the error and gives false otherwise.
bool CheckImportName(const char *pszName, ImportMessageList &list);

// The folder of submission zips and unpacked zips: $MINTYARD_SCRATCH_DIR when set, otherwise
// "mintyard_submissions_g2/" in $TMPDIR (/tmp when unset). Always ends with '/'.
CUtlString GetMintyardScratchDir();

// Template expressions: "$(id:property)" names a property of the session element with that
// template id; any other text stands for itself. False when the element or property is unknown
// (out is then left as it was).
bool ResolveExpression(const CMintyardImportSession *pSession, const char *pszText, CUtlString &out);
// Splits an expression; false for a literal.
bool ParseExpression(const char *pszText, CUtlString &id, CUtlString &property);
