// Turns a preview model set into tool scene nodes: the subject in the middle (a hero, or the
// item, courier or ward alone), the wearables hanging on the hero and following its bones, the
// slot's stock model as a tinted reference when asked for, and the summoned units beside the
// hero. The set's animation (sequence, speed, frame) plays on the subject; wearables follow it.
// Particles of the set are listed by the set and not drawn: this build has no particle system.
#pragma once

#include "core/utlstring.h"
#include "core/utlvector.h"

// The preview's camera at first: a three-quarter view from the front, a little above.
constexpr float ZARN_PREVIEW_CAMERA_YAW = 25.0f;
constexpr float ZARN_PREVIEW_CAMERA_PITCH = 12.0f;

class CToolScene;
class CToolSceneCamera;
class CToolSceneModelNode;
class CZarnPreviewModelSet;

class CZarnPreviewScene
{
public:
	explicit CZarnPreviewScene(CToolScene *pScene);
	~CZarnPreviewScene();
	CZarnPreviewScene(const CZarnPreviewScene &) = delete;
	CZarnPreviewScene &operator=(const CZarnPreviewScene &) = delete;

	// Makes the nodes of the set anew (models come from the scene's resources, which keep what
	// is already loaded), then applies its animation and display options.
	void Build(const CZarnPreviewModelSet &set);
	// The set's sequence, speed and frame on the subject; summons play their idle activity.
	void ApplyAnimation(const CZarnPreviewModelSet &set);
	// LOD 1, the hidden hero and the reference model of the set.
	void ApplyDisplayOptions(const CZarnPreviewModelSet &set);
	// Removes every node this object made.
	void Clear();

	// The model in the middle of the scene (null when it could not be loaded).
	CToolSceneModelNode *GetSubjectNode() const { return m_pSubject; }
	// The node of the model under preview: the subject itself, or its wearable on the hero.
	CToolSceneModelNode *GetModelNode() const { return m_pModel; }
	const CUtlVector<CToolSceneModelNode *> &GetWearableNodes() const { return m_Wearables; }
	const CUtlVector<CToolSceneModelNode *> &GetSummonNodes() const { return m_Summons; }
	CToolSceneModelNode *GetReferenceNode() const { return m_pReference; }
	// Names of the models that could not be loaded at the last Build, with the loader's message.
	const CUtlVector<CUtlString> &GetLoadErrors() const { return m_LoadErrors; }

	// Places the camera so that the visible models fill the view: looking at their centre from
	// the front of the models (which face -Y), turned by `flYaw` degrees counter-clockwise seen
	// from above and raised by `flPitch` degrees.
	void FrameCamera(CToolSceneCamera &camera, float flAspect, float flYaw = ZARN_PREVIEW_CAMERA_YAW,
		float flPitch = ZARN_PREVIEW_CAMERA_PITCH) const;

private:
	CToolSceneModelNode *MakeModel(const char *pszPath, int nSkin);

	CToolScene *m_pScene;
	CToolSceneModelNode *m_pSubject = nullptr;
	CToolSceneModelNode *m_pModel = nullptr;
	CToolSceneModelNode *m_pReference = nullptr;
	CUtlVector<CToolSceneModelNode *> m_Wearables;
	CUtlVector<CToolSceneModelNode *> m_Summons;
	CUtlVector<CUtlString> m_LoadErrors;
	bool m_bHeroScene = false;
};
