// Where the time of an import run goes: placing files, writing documents, compiling and checking.
// Each stage adds the time spent inside it; the run starts them at zero and reports them in its log.
#pragma once

#include <chrono>

enum EMintyardImportStage
{
	MINTYARD_STAGE_PLACEMENT = 0, // copies, mesh preparation, buffers written
	MINTYARD_STAGE_DOCUMENTS,	  // material and model documents built and saved
	MINTYARD_STAGE_COMPILES,	  // the resource compiler
	MINTYARD_STAGE_CHECKS,		  // mesh topology and compiled-model checks
	MINTYARD_STAGE_IMAGES,		  // decoding, rescaling and encoding images
	MINTYARD_STAGE_COUNT,
};

struct MintyardImportStageTimes_t
{
	double m_flSeconds[MINTYARD_STAGE_COUNT] = {};
	double m_flTotal = 0.0;
};

// The times of the last run (or of the run going on).
const MintyardImportStageTimes_t &GetImportStageTimes();
void ResetImportStageTimes();
const char *GetImportStageName(EMintyardImportStage eStage);

// Adds the time it lives to its stage. Stages nest: time inside an inner stage counts for the inner
// one only (a compile inside a model's document step is a compile).
class CImportStageTimer
{
public:
	explicit CImportStageTimer(EMintyardImportStage eStage);
	~CImportStageTimer();
	CImportStageTimer(const CImportStageTimer &) = delete;
	CImportStageTimer &operator=(const CImportStageTimer &) = delete;

private:
	EMintyardImportStage m_eStage;
	CImportStageTimer *m_pOuter;
	std::chrono::steady_clock::time_point m_Start;
	double m_flInner = 0.0; // seconds taken by stages inside this one
};
