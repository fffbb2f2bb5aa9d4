// What the import wizard hands to the main window when a submission zip is ready. Built on the
// stack by the wizard and passed by pointer through its synchronous ReadyToSubmit signal: the
// receiver copies what it keeps.
#pragma once

#include <QObject>
#include <QPointer>

#include "core/platform.h"
#include "core/utlstring.h"
#include "mintyardtoolutils/core/publishedfileinfo.h"

class CMintyardTemplate;

struct PreparedMintyardSubmission_t
{
	CUtlString m_strZipPath;	// full path of the submission zip
	uint32 m_nZipSize = 0;		// its size in bytes when the wizard wrote it
	uint64 m_nZipTime = 0;		// its modification time when the wizard wrote it
	const CMintyardTemplate *m_pTemplate = nullptr;			 // its "mintyard_tags" become the tags
	const PublishedFileInfo_t *m_pExistingFile = nullptr;	 // the session's record, or null
	QPointer<QObject> m_pSubmitter; // the wizard: OnSubmitAccepted() and OnSubmitRejected()
};
