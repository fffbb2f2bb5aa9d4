// The template catalogue: the templates read from the files that
// "scripts/mintyard_import_templates/templates.txt" names, and the templates built by code on
// demand, one per wearable slot of a hero ("wearable.<hero>.<slot>") and one for the ability
// icons of a hero ("abilityicons.<hero>"). The session owns one catalogue. Built templates are
// made once and kept until the catalogue dies, so repeated lookups give the same object; no
// template changes after it joined the catalogue.
#pragma once

#include <memory>

#include "core/utlstring.h"
#include "core/utlvector.h"
#include "mintyardtoolutils/core/importmessages.h"
#include "mintyardtoolutils/core/mintyardtemplate.h"

struct hero_t;
struct hero_slot_t;
struct PublishedFileInfo_t;

#define MINTYARD_TEMPLATE_CATALOGUE_FILE "scripts/mintyard_import_templates/templates.txt"
#define MINTYARD_TAG_WEARABLE "Wearable"
#define MINTYARD_TAG_ABILITY_ICONS "Ability Icons"

class CMintyardTemplateCatalogue
{
public:
	CMintyardTemplateCatalogue() = default;
	CMintyardTemplateCatalogue(const CMintyardTemplateCatalogue &) = delete;
	CMintyardTemplateCatalogue &operator=(const CMintyardTemplateCatalogue &) = delete;

	// Loads the game data once per process, then the catalogue file and every template it
	// names. A template with a problem is left out with a warning; false only when the
	// catalogue file itself cannot be read. Replaces what an earlier call loaded.
	bool LoadTemplates(ImportMessageList &list);

	// By id, also of built templates not yet made. Null when unknown.
	const CMintyardTemplate *FindTemplate(const char *pszId);
	// By the tags of a published record. Null when none fits.
	const CMintyardTemplate *FindTemplateByTags(int nTagCount, const char *const *ppTags);
	const CMintyardTemplate *FindTemplateByTags(const CUtlVector<CUtlString> &tags);
	// The template of a published record; an error in the list when there is none.
	const CMintyardTemplate *FindTemplateForRecord(const PublishedFileInfo_t *pRecord, ImportMessageList &list);

	// The wearable template of a hero's slot (the index into hero_t::slots), built when asked
	// for the first time. Null for a slot out of range or with noImport.
	const CMintyardTemplate *GetWearableTemplate(const hero_t *pHero, int nSlotIndex);
	// The same for the hero at an index of the hero table.
	const CMintyardTemplate *GetWearableTemplate(int nHeroIndex, int nSlotIndex);
	// The same for the hero with a HeroID.
	const CMintyardTemplate *GetWearableTemplateByHeroID(int32 nHeroID, int nSlotIndex);
	const CMintyardTemplate *GetAbilityIconsTemplate(const hero_t *pHero);

	// The templates read from files, in catalogue order.
	int GetFileTemplates() const { return (int)m_FileTemplates.size(); }
	const CMintyardTemplate *GetFileTemplate(int nIndex) const;
	int GetBuiltTemplates() const { return (int)m_BuiltTemplates.size(); }
	const CMintyardTemplate *GetBuiltTemplate(int nIndex) const;

	void Clear();

private:
	const CMintyardTemplate *FindLoadedTemplate(const char *pszId) const;

	CUtlVector<std::unique_ptr<CMintyardTemplate>> m_FileTemplates;
	CUtlVector<std::unique_ptr<CMintyardTemplate>> m_BuiltTemplates;
};

// Warnings for duplicate ids and model suffixes; false when the template is to be left out.
bool ValidateTemplate(const CMintyardTemplate &tmpl, ImportMessageList &list);

// The display name token of a slot: its slotText, or "#LoadoutSlot_<name>" with the slot table's
// name of the slot index.
CUtlString GetSlotDisplayName(const hero_slot_t &slot);

// Ids of the built templates.
CUtlString MakeWearableTemplateId(const hero_t &hero, const hero_slot_t &slot);
CUtlString MakeAbilityIconsTemplateId(const hero_t &hero);
