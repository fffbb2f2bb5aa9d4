// The host tool "portraitEditor": the tool object that the preview library offers the tool
// registry when it loads, so that the wizard finds it by name. Its one service is the icon
// interface of the wizard (IMintyardPortraitIcons): generate ("mintyard", an item's keys, 0)
// sets up the icons of every model under the keys' `portraits`, the first finishing call draws
// and writes them (see portraiticonrender.h for the sizes, the format and the place), the second
// lets go of the drawing context.
#pragma once

#include <memory>

#include "core/utlstring.h"
#include "core/utlvector.h"
#include "mintyardtoolutils/core/portraitrecord.h"
#include "mintyardtoolutils/wizard/portraiticons.h"
#include "toolframework/toolsystem.h"

class CZarnPortraitIconRenderer;

class CZarnPortraitEditorTool : public CBaseToolSystem2, public IMintyardPortraitIcons
{
public:
	// One icon to draw: a model, its portrait, where the picture goes (a full path).
	struct IconJob_t
	{
		CUtlString m_ModelPath;
		CZarnPortraitRecord m_Record;
		int m_nSize = 256;
		CUtlString m_OutputPath;
		bool m_bTransparent = false;
	};

	CZarnPortraitEditorTool();
	~CZarnPortraitEditorTool() override;

	// The icon interface by its name, the tool dictionary as every tool.
	void *QueryInterface(const char *pszInterfaceName) override;

	// IMintyardPortraitIcons. Generate takes the kind "mintyard" only; it also names the first
	// model's icon in the keys' `image_inventory`.
	bool GenerateIcons(const char *pszKind, KeyValues *pItemKeys, int nFlags) override;
	void FinishIcons() override;
	void ReleaseIcons() override;

	// Without a background: icons with alpha only where the model and overlays are, for every
	// batch (a batch alone: the flag MINTYARD_PORTRAIT_ICONS_TRANSPARENT of GenerateIcons).
	void SetTransparentBackground(bool bTransparent) { m_bTransparent = bTransparent; }
	// The folder icons go under (empty: the game folder of the tool's file system).
	void SetOutputRoot(const char *pszFolder) { m_OutputRoot = pszFolder ? pszFolder : ""; }

	const CUtlVector<IconJob_t> &GetPendingIcons() const { return m_Jobs; }
	// The files the last FinishIcons wrote, and what failed.
	const CUtlVector<CUtlString> &GetWrittenIcons() const { return m_Written; }
	const CUtlVector<CUtlString> &GetIconErrors() const { return m_Errors; }

private:
	CUtlString OutputRoot() const;

	CUtlVector<IconJob_t> m_Jobs;
	CUtlVector<CUtlString> m_Written;
	CUtlVector<CUtlString> m_Errors;
	std::unique_ptr<CZarnPortraitIconRenderer> m_pRenderer;
	bool m_bTransparent = false;
	CUtlString m_OutputRoot;
};

// The tool object the library registered.
CZarnPortraitEditorTool &GetZarnPortraitEditorTool();
