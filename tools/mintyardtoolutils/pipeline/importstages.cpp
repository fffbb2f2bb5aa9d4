#include "mintyardtoolutils/pipeline/importstages.h"

namespace
{
MintyardImportStageTimes_t s_Times;
CImportStageTimer *s_pInnermost = nullptr;
} // namespace

const MintyardImportStageTimes_t &GetImportStageTimes()
{
	return s_Times;
}

void ResetImportStageTimes()
{
	s_Times = MintyardImportStageTimes_t();
}

const char *GetImportStageName(EMintyardImportStage eStage)
{
	static const char *const s_Names[MINTYARD_STAGE_COUNT] = { "placement", "documents", "compiles", "checks", "images" };
	return eStage >= 0 && eStage < MINTYARD_STAGE_COUNT ? s_Names[eStage] : "";
}

CImportStageTimer::CImportStageTimer(EMintyardImportStage eStage) : m_eStage(eStage), m_pOuter(s_pInnermost), m_Start(std::chrono::steady_clock::now())
{
	s_pInnermost = this;
}

CImportStageTimer::~CImportStageTimer()
{
	const double flSeconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - m_Start).count();
	s_Times.m_flSeconds[m_eStage] += flSeconds - m_flInner;
	if (m_pOuter)
		m_pOuter->m_flInner += flSeconds;
	s_pInnermost = m_pOuter;
}
