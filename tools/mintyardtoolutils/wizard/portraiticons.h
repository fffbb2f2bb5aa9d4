// What the host's portrait editor tool ("portraitEditor" in the tool registry) offers the wizard:
// icon images of an item drawn from its keys. The wizard asks the tool for this interface by
// name through IAppSystem::QueryInterface; a tool without it cannot make icons.
#pragma once

class KeyValues;

#define MINTYARD_PORTRAIT_ICONS_INTERFACE_VERSION "MintyardPortraitIcons001"
#define MINTYARD_PORTRAIT_EDITOR_TOOL_NAME "portraitEditor"

// Flags of GenerateIcons (the wizard passes none).
enum EMintyardPortraitIconFlags
{
	// Icons without a background: alpha only where the model and the overlays are.
	MINTYARD_PORTRAIT_ICONS_TRANSPARENT = 1 << 0,
};

class IMintyardPortraitIcons
{
public:
	// Sets up the icons of the item: `pszKind` "mintyard", the item's keys, flags of
	// EMintyardPortraitIconFlags (0 for the icons the game shows).
	virtual bool GenerateIcons(const char *pszKind, KeyValues *pItemKeys, int nFlags) = 0;
	// Draws and writes the images set up.
	virtual void FinishIcons() = 0;
	// Lets go of what the drawing held.
	virtual void ReleaseIcons() = 0;

protected:
	~IMintyardPortraitIcons() = default;
};

// Looks the tool up and has it make the icons of the item: generate, then the two finishing
// operations. Without the tool or its interface it logs why (the two messages of the tool's
// log) and returns false.
bool GenerateMintyardItemIcons(KeyValues *pItemKeys);
