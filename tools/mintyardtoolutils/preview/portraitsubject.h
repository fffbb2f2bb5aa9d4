// The models a portrait shows, as nodes of one tool scene: what the preview model set puts in
// the middle (a hero with its wearables, or the item, courier or ward alone) or a model alone,
// and the summoned units placed by the record's `summons` block, each playing its idle.
//
// The portrait viewer, the editor scene and the icon renderer each keep one for their scene.
#pragma once

#include <memory>

#include "core/utlstring.h"
#include "core/utlvector.h"
#include "mintyardtoolutils/core/portraitrecord.h"

class CToolScene;
class CToolSceneModelNode;
class CZarnPreviewModelSet;
class CZarnPreviewScene;

class CZarnPortraitSubject
{
public:
	explicit CZarnPortraitSubject(CToolScene *pScene);
	~CZarnPortraitSubject();
	CZarnPortraitSubject(const CZarnPortraitSubject &) = delete;
	CZarnPortraitSubject &operator=(const CZarnPortraitSubject &) = delete;

	// What the set shows: its nodes are made again when the models that stand change, and its
	// animation and display options applied on every call.
	void Sync(const CZarnPreviewModelSet &set);
	// A model shown alone (a resource path, "models/x.zmdl"), at the scale given, instead of a
	// set. The node is made again only when the path changes. False when the model does not
	// load (the node stays empty).
	bool SetModel(const char *pszModelPath, float flScale = 1.0f);
	const CUtlString &GetModelPath() const { return m_ModelPath; }
	// The model in the middle: the set's subject, or the model shown alone.
	CToolSceneModelNode *GetModelNode() const;
	// The nodes of the set last synced (the hero's wearables among them).
	const CZarnPreviewScene &Preview() const { return *m_pPreview; }
	// Plays what the record names on a model shown alone: its sequence, else its activity, else
	// the idle activity, at its rate; bPlaying false holds the record's cycle (the icon's still
	// picture).
	void ApplyAnimation(const CZarnPortraitRecord *pRecord, bool bPlaying);

	// The summoned units of the record, shown or not, each with the model the set gives its
	// unit (the game's unit model without a set). Units are made again when the list of names
	// changes, and placed on every call.
	void SetSummons(const CZarnPortraitRecord *pRecord, bool bShow, const CZarnPreviewModelSet *pSet = nullptr);
	int GetSummonCount() const { return (int)m_Summons.size(); }
	CToolSceneModelNode *GetSummonNode(int nIndex) const;

	// Removes every node.
	void Clear();

	// The model of a unit of the game data, or empty.
	static CUtlString FindUnitModel(const char *pszUnit);

private:
	CToolScene *m_pScene;
	std::unique_ptr<CZarnPreviewScene> m_pPreview;
	CUtlString m_BuiltKey;
	CUtlString m_ModelPath;
	float m_flScale = 1.0f;
	CToolSceneModelNode *m_pModel = nullptr;
	CUtlVector<CUtlString> m_SummonUnits;
	CUtlVector<CToolSceneModelNode *> m_Summons;
	CUtlString m_AnimationKey;
};
