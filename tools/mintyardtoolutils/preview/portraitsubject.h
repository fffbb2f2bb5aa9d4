// The models a portrait shows, as nodes of one tool scene: the subject (the model of the
// element being framed) with the animation the portrait record names, and the summoned units
// placed by the record's `summons` block, each playing its idle.
//
// The portrait viewer, the editor scene and the icon renderer each keep one for their scene.
#pragma once

#include "core/utlstring.h"
#include "core/utlvector.h"
#include "mintyardtoolutils/core/portraitrecord.h"

class CToolScene;
class CToolSceneModelNode;

class CZarnPortraitSubject
{
public:
	explicit CZarnPortraitSubject(CToolScene *pScene);
	~CZarnPortraitSubject();
	CZarnPortraitSubject(const CZarnPortraitSubject &) = delete;
	CZarnPortraitSubject &operator=(const CZarnPortraitSubject &) = delete;

	// The model shown (a resource path, "models/x.zmdl"), at the scale given. The node is made
	// again only when the path changes. False when the model does not load (the node stays
	// empty).
	bool SetModel(const char *pszModelPath, float flScale = 1.0f);
	const CUtlString &GetModelPath() const { return m_ModelPath; }
	CToolSceneModelNode *GetModelNode() const { return m_pModel; }
	// Plays what the record names: its sequence, else its activity, else the idle activity, at
	// its rate; bPlaying false holds the record's cycle (the icon's still picture).
	void ApplyAnimation(const CZarnPortraitRecord *pRecord, bool bPlaying);
	// The subject hidden (a portrait that hides its hero).
	void SetSubjectVisible(bool bVisible);

	// The summoned units of the record, shown or not. Units are made again when the list of
	// names changes, and placed on every call.
	void SetSummons(const CZarnPortraitRecord *pRecord, bool bShow);
	int GetSummonCount() const { return (int)m_Summons.size(); }
	CToolSceneModelNode *GetSummonNode(int nIndex) const;

	// Removes every node.
	void Clear();

	// The model of a unit of the game data, or empty.
	static CUtlString FindUnitModel(const char *pszUnit);

private:
	CToolScene *m_pScene;
	CUtlString m_ModelPath;
	float m_flScale = 1.0f;
	CToolSceneModelNode *m_pModel = nullptr;
	CUtlVector<CUtlString> m_SummonUnits;
	CUtlVector<CToolSceneModelNode *> m_Summons;
	CUtlString m_AnimationKey;
};
