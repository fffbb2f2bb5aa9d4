// The custom wearable templates that staff generate from a hero's slot in the hero dialog: the
// slot's built template saved as a template file of its own, with its defaults pruned, so that
// an artist can edit it by hand.
#pragma once

#include "core/keyvalues3.h"
#include "core/utlstring.h"

class CMintyardTemplate;
struct hero_t;
struct hero_slot_t;

// True when a member's value is one a template file can leave out: the special defaults of
// max_bones (60), of the size and dimension keys (-1), then the general ones (null, false, 0,
// 0.0, an empty string, array or table).
bool IsTemplateDefaultValue(const KV3MemberName_t &key, const KeyValues3 *pValue);
// Removes every default member: arrays walked in order, tables from the last member to the first.
void PruneTemplateDefaults(KeyValues3 *pValue);

struct CustomTemplateResult_t
{
	CUtlString m_Path;	  // where it was written (absolute)
	CUtlString m_Text;	  // the file's text
	CUtlString m_Error;	  // why nothing was written (empty on success)
	CUtlString m_Summary; // what the author must do before the template is active
};

// Builds the custom template of a hero's slot from `pTemplate` (the slot's built template),
// prunes it and writes it to "scripts/mintyard_import_templates/template_<hero>_<slot>.txt" on
// the "MOD" search path. False with m_Error when it cannot be serialised or written.
bool WriteCustomWearableTemplate(const hero_t &hero, const hero_slot_t &slot, const CMintyardTemplate &tmpl, CustomTemplateResult_t &result);
