// The model behind every view of the portrait editor: the portrait record being edited, the
// preview model set that the views draw, and the editing state that is not saved (the ambient
// gizmo's place, the camera targets, the selected summon, the preview mode and the courier and
// ward choices, which camera is edited, the gizmo mode).
//
// Every change goes through a setter here, which writes the record and tells the listeners; the
// views (panel, viewer, scene, summons widget) only read. The camera getters and setters work on
// the camera that the editing-summons flag selects: "summons" when it is set, else "default"; a
// record without that camera gives its first one.
#pragma once

#include <memory>

#include "core/mathtypes.h"
#include "core/utlstring.h"
#include "core/utlvector.h"
#include "mintyardtoolutils/core/portraitrecord.h"
#include "mintyardtoolutils/preview/previewmodelset.h"

class CMintyardImportSession;
class CMintyardCfg_BaseZarnModel;
class CZarnPreviewModelSet;

// What the model tells its views. Every operation has an empty default.
class IZarnPortraitEditorListener
{
public:
	// The record was replaced or changed as a whole (a paste, a new model, a reload).
	virtual void OnPortraitChanged() {}
	// One value of the current camera changed (position, angles, target, roll, FOV, far Z).
	virtual void OnPortraitCameraChanged() {}
	// One value of the light block changed.
	virtual void OnPortraitLightChanged() {}
	// The background texture or colours changed.
	virtual void OnPortraitBackgroundChanged() {}
	// The model set's style changed.
	virtual void OnPortraitStyleChanged() {}
	// The preview mode changed (and with it the courier and ward choices).
	virtual void OnPortraitPreviewModeChanged() {}
	// The gizmo mode changed.
	virtual void OnPortraitGizmoModeChanged() {}
	// The summons, the selected one, or whether they are shown changed.
	virtual void OnPortraitSummonsChanged() {}

protected:
	~IZarnPortraitEditorListener() = default;
};

// The modes of the gizmo: what a drag moves.
enum EZarnPortraitGizmoMode
{
	PORTRAIT_GIZMO_NONE = -1,
	PORTRAIT_GIZMO_CAMERA_POSITION = 0,
	PORTRAIT_GIZMO_CAMERA_TARGET = 1,
	PORTRAIT_GIZMO_LIGHT_POSITION = 2,
	PORTRAIT_GIZMO_LIGHT_ANGLES = 3,
	PORTRAIT_GIZMO_AMBIENT_POSITION = 4,
	PORTRAIT_GIZMO_AMBIENT_ANGLES = 5,
	PORTRAIT_GIZMO_SUMMON_POSITION = 6,
	PORTRAIT_GIZMO_SUMMON_ANGLES = 7,
	PORTRAIT_GIZMO_SUMMON_SCALE = 8,
	PORTRAIT_GIZMO_MODE_COUNT = 9,
};

// The preview modes shared with the preview model set.

// Where a camera of the given angles (roll aside), horizontal field of view and picture aspect
// stands so that a box fills its picture, with `flMargin` (a share of the picture) left free on
// each side: the box's centre straight ahead, every corner inside. False for an empty box.
bool ComputePortraitFraming(const Vector &mins, const Vector &maxs, const QAngle &angles, float flFOV, float flAspect, float flMargin,
	Vector &outPosition, Vector &outTarget);

// The view a portrait camera that was never placed gets when it is framed: from the front (+X),
// a little to the side and above.
inline constexpr QAngle PORTRAIT_DEFAULT_FRAMING_ANGLES = QAngle(12.0f, 200.0f, 0.0f);

class CZarnPortraitEditorModel
{
public:
	enum
	{
		CAMERA_DEFAULT = 0,
		CAMERA_SUMMONS = 1,
		CAMERA_COUNT = 2,
	};
	static constexpr const char *CAMERA_NAME_DEFAULT = "default";
	static constexpr const char *CAMERA_NAME_SUMMONS = "summons";
	// The smallest scale a summon takes.
	static constexpr float MIN_SUMMON_SCALE = 0.01f;

	CZarnPortraitEditorModel();
	~CZarnPortraitEditorModel();
	CZarnPortraitEditorModel(const CZarnPortraitEditorModel &) = delete;
	CZarnPortraitEditorModel &operator=(const CZarnPortraitEditorModel &) = delete;

	// Listeners, told in the order they were added.
	void AddListener(IZarnPortraitEditorListener *pListener);
	void RemoveListener(IZarnPortraitEditorListener *pListener);

	// The record being edited (not owned; null: nothing). The camera targets are placed on the
	// cameras' lines of sight, the rolls taken from their angles, the ambient gizmo put where the
	// ambient light comes from. Tells the listeners that the whole portrait changed.
	void SetPortraitRecord(CZarnPortraitRecord *pRecord);
	CZarnPortraitRecord *GetPortraitRecord() const { return m_pRecord; }
	// Tells the listeners that the whole portrait changed (after a change made to the record
	// itself, such as a paste or a reload).
	void NotifyPortraitChanged();
	// Replaces what the record holds (a paste), without telling the listeners. With
	// bKeepEditingState the camera targets and rolls stay as they were, for a caller that sets
	// the framing back; otherwise they come from the new contents.
	void ReplaceRecord(const CZarnPortraitRecord &record, bool bKeepEditingState);

	// The session whose models are shown (not owned), and the model shown with its scale:
	// handed to the model set with the session's hero, slot and item keys (the element's own
	// when it is one of the session's models). False when no compiled model exists at the path.
	void SetSession(CMintyardImportSession *pSession) { m_pSession = pSession; }
	CMintyardImportSession *GetSession() const { return m_pSession; }
	bool SetModel(const char *pszModelPath, float flScale, const CMintyardCfg_BaseZarnModel *pElement = nullptr);
	const CUtlString &GetModelPath() const { return m_ModelPath; }
	float GetModelScale() const { return m_flModelScale; }
	const CMintyardCfg_BaseZarnModel *GetModelElement() const { return m_pModelElement; }
	// The set the views draw: the session's model on its hero with its wearables, or the item,
	// courier or ward alone, by the preview mode.
	CZarnPreviewModelSet *GetModelSet() const { return m_pModelSet.get(); }

	// ---- The current camera: "default", or "summons" while summons are edited.
	int GetCameraIndex() const { return m_bEditingSummons ? CAMERA_SUMMONS : CAMERA_DEFAULT; }
	const char *GetCameraName() const { return m_bEditingSummons ? CAMERA_NAME_SUMMONS : CAMERA_NAME_DEFAULT; }
	// The camera entry of the record (null without a record).
	CZarnPortraitRecord::Camera_t *GetCurrentCamera() const;
	Vector GetCameraPosition() const;
	QAngle GetCameraAngles() const;
	Vector GetCameraTarget() const { return m_CameraTarget[GetCameraIndex()]; }
	float GetCameraRoll() const { return m_flCameraRoll[GetCameraIndex()]; }
	float GetCameraFOV() const;
	float GetCameraFarZ() const;
	// The camera keeps looking at its target as it moves: its angles follow.
	void SetCameraPosition(const Vector &position);
	// Turns the camera to look at the target (with its roll).
	void SetCameraTarget(const Vector &target);
	// Angles as they stand; the target moves onto the new line of sight, the roll follows.
	void SetCameraAngles(const QAngle &angles);
	// Position and target together (the scene's camera copied into the portrait).
	void SetCameraPositionAndTarget(const Vector &position, const Vector &target);
	void SetCameraRoll(float flRoll);
	void SetCameraFOV(float flFOV);
	void SetCameraFarZ(float flFarZ);
	// Frames a box (the compiled bounds of what the portrait shows) with the current camera:
	// its direction kept (the default view for a camera never placed), its position and target
	// moved, its far plane pushed past the box when needed. False for an empty box.
	bool FrameBounds(const Vector &mins, const Vector &maxs, float flAspect, float flMargin);

	// ---- Light block.
	void SetLightPosition(const Vector &position);
	void SetLightAngles(const QAngle &angles);
	void SetLightFOV(float flFOV);
	void SetLightDistance(float flDistance);
	void SetLightColor(const Color &color);
	void SetLightScale(float flScale);
	void SetAmbientColor(const Color &color);
	void SetAmbientScale(float flScale);
	void SetShadowColor(const Color &color);
	// PortraitShadowScale: the shadow the entity casts.
	void SetEntityShadowScale(float flScale);
	// The ambient marker's place (editing only, not saved).
	const Vector &GetAmbientGizmoPosition() const { return m_AmbientGizmoPosition; }
	void SetAmbientGizmoPosition(const Vector &position);
	// The ambient direction as the angles its negation points along (what the marker shows),
	// and back: the direction keeps its length.
	QAngle GetAmbientAngles() const;
	void SetAmbientAngles(const QAngle &angles);
	void SetAmbientDirection(const Vector &direction);

	// ---- Background.
	void SetBackgroundTexture(const char *pszPath);
	void SetBackgroundColors(const Vector colors[4]);

	// ---- Preview: mode, style, courier and ward choices, animation.
	int GetPreviewMode() const { return m_nPreviewMode; }
	void SetPreviewMode(int nMode);
	int GetCourierType() const { return m_nCourierType; } // 0 walking, 1 flying
	int GetCourierTeam() const { return m_nCourierTeam; } // 0 sunward, 1 moonward
	int GetWardType() const { return m_nWardType; }		// 0 observer, 1 sentry
	void SetCourierType(int nType);
	void SetCourierTeam(int nTeam);
	void SetWardType(int nType);
	int GetStyleCount() const;
	int GetCurrentStyle() const;
	void SetCurrentStyle(int nStyle);
	// The animation of the portrait: the sequence, speed and frame go to the model set (the
	// views play them) and into the record (its sequence, rate and the frame as its cycle).
	void SetAnimationSequence(const char *pszSequence);
	void SetAnimationSpeed(float flSpeed);
	// A frame from 0 holds it; a negative frame plays on.
	void SetAnimationFrame(int nFrame);
	// Frames of the sequence the set plays on its subject (0 when it has none).
	int GetAnimationFrameCount() const;

	// ---- Summons.
	int GetSelectedSummon() const { return m_nSelectedSummon; }
	// -1 (the base unit) or an index of the record's summons; out of range becomes -1. Leaving
	// a summon's selection ends a summon gizmo mode.
	void SetSelectedSummon(int nSummon);
	// Adds a unit at the origin with scale 1 and selects it; its index, or -1 without a record.
	int AddSummon(const char *pszUnit);
	// Removes a summon; the selection returns to the base unit.
	void RemoveSummon(int nSummon);
	// The selected summon of the record, null for the base unit.
	CZarnPortraitRecord::Summon_t *GetSelectedSummonRecord() const;
	void SetSummonPosition(const Vector &position);
	void SetSummonAngles(const QAngle &angles);
	// Held at MIN_SUMMON_SCALE at least.
	void SetSummonScale(float flScale);
	bool GetDisplaySummons() const { return m_bDisplaySummons; }
	void SetDisplaySummons(bool bDisplay);
	// Whether the camera values work on "summons" (made when missing) rather than "default".
	bool IsEditingSummons() const { return m_bEditingSummons; }
	void SetEditingSummons(bool bEditing);

	// ---- Gizmo.
	int GetGizmoMode() const { return m_nGizmoMode; }
	// A mode outside 0 to 8 is -1, no edit.
	void SetGizmoMode(int nMode);

	// Where a camera's target goes for given position and angles: the point of its line of
	// sight nearest the origin, at least a little ahead of the camera.
	static Vector DefaultCameraTarget(const Vector &position, const QAngle &angles);

private:
	template<typename F>
	void Notify(F &&fn);
	// Targets, rolls and the ambient gizmo from the record.
	void ResetEditingState();
	// The record's hidden hero and particles and its animation into the model set.
	void ApplyRecordToModelSet();
	// Angles that look from the position at the target with the current roll (the current
	// angles when the two coincide).
	QAngle LookAngles(const Vector &position, const Vector &target, float flRoll, const QAngle &current) const;

	CZarnPortraitRecord *m_pRecord = nullptr;
	std::unique_ptr<CZarnPreviewModelSet> m_pModelSet;
	Vector m_AmbientGizmoPosition;
	Vector m_CameraTarget[CAMERA_COUNT];
	float m_flCameraRoll[CAMERA_COUNT] = { 0.0f, 0.0f };
	int m_nSelectedSummon = -1;
	int m_nPreviewMode = ZARN_PREVIEW_MODE_ITEM;
	int m_nCourierType = 0;
	int m_nCourierTeam = 0;
	int m_nWardType = 0;
	bool m_bEditingSummons = false;
	int m_nGizmoMode = PORTRAIT_GIZMO_NONE;
	CUtlVector<IZarnPortraitEditorListener *> m_Listeners;

	CMintyardImportSession *m_pSession = nullptr;
	const CMintyardCfg_BaseZarnModel *m_pModelElement = nullptr;
	CUtlString m_ModelPath;
	float m_flModelScale = 1.0f;
	bool m_bDisplaySummons = false;
};
