// The steps of a publish after the form is valid: pack or take the zip, create the item when
// it is new, move the content where the client uploads it from, write the preview, set the
// item's fields, submit and report.
#include <QCheckBox>
#include <QComboBox>
#include <QDateTime>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QLineEdit>
#include <QMessageBox>
#include <QPixmap>
#include <QProgressDialog>
#include <QRadioButton>
#include <QTextEdit>
#include <QUrl>

#include "bdllib/packaddonfolder.h"
#include "core/keyvalues.h"
#include "filesystem/filesystem.h"
#include "mintyardmanager/mainwindow.h"
#include "mintyardmanager/mintyardmanagertool.h"
#include "mintyardmanager/publishfiledialog.h"
#include "mintyardmanager/resources.h"
#include "toolframework/toolframework.h"

namespace
{
// Paths are built with backslashes; they become the separator of the platform.
QString FixSlashes(QString path)
{
#ifdef _WIN32
	return path.replace('/', '\\');
#else
	return path.replace('\\', '/');
#endif
}

QString Fmt(const char *token, const QString &a1 = QString(), const QString &a2 = QString(), const QString &a3 = QString())
{
	const QByteArray b1 = a1.toUtf8(), b2 = a2.toUtf8(), b3 = a3.toUtf8();
	return QString::fromUtf8(Localize()
								 ->Format(token, a1.isNull() ? nullptr : b1.constData(), a2.isNull() ? nullptr : b2.constData(),
									 a3.isNull() ? nullptr : b3.constData())
								 .c_str());
}

IBrumeUGC *UGC()
{
	return BrumeAPIContext()->BrumeUGC();
}

QString Id(uint64 id)
{
	return QString::number(id);
}
} // namespace

QString CPublishFileDialog::MakePreviewPath() const
{
	return FixSlashes(QString::asprintf("%s/mintyardupload_%llu/preview_%llx.jpg", QDir::tempPath().toUtf8().constData(),
		(unsigned long long)m_record.m_nPublishedFileId, (unsigned long long)QDateTime::currentSecsSinceEpoch()));
}

CUtlString CPublishFileDialog::AddonsRoot() const
{
	if (!g_pAddonService)
		return CUtlString();
	CUtlString root = g_pAddonService->GetAddonsGameRoot();
	if (!root.empty() && root.back() != '/' && root.back() != '\\')
		root += '/';
	return root;
}

void CPublishFileDialog::SubmitButtonClicked()
{
	if (!Validate())
		return;
	if (m_bEditOnly)
	{
		SubmitEditOnly();
		return;
	}
	m_nPublishState = PUBLISH_STATE_START;
	PublishStep();
}

void CPublishFileDialog::timerEvent(QTimerEvent *)
{
	PublishStep();
}

bool CPublishFileDialog::PublishStep()
{
	IBrumeUGC *ugc = UGC();
	if (!ugc)
		return false;
	switch (m_nPublishState)
	{
	case PUBLISH_STATE_START:
		ShowProgress("#Mintyard_Publish_PackagingSubmission");
		m_nPublishState = PUBLISH_STATE_PACK;
		m_nTimerId = startTimer(1, Qt::CoarseTimer);
		return true;

	case PUBLISH_STATE_PACK:
	{
		StopTimer();
		m_record.m_sTitle = m_pTitleEdit->text().toUtf8().constData();
		m_record.m_sDescription = m_pDescriptionEdit->toPlainText().toUtf8().constData();
		m_record.m_rtimeUpdated = (uint32)QDateTime::currentSecsSinceEpoch();
		const int visibility = VisibilityFromRadios();
		if (visibility < 0)
		{
			m_record.m_eVisibility = 2;
			return false;
		}
		m_record.m_eVisibility = visibility;
		if (IsAddonMode(m_eMode))
		{
			OnItemTypeChanged();
			m_record.m_sSourceFolder = m_pAddonCombo ? m_pAddonCombo->currentText().toUtf8().constData() : "";
			if (m_bExisting && !ConfirmFolderUnchanged())
			{
				CloseProgress();
				return false;
			}
			CUtlString packed;
			if (!PackAddon(packed))
			{
				CloseProgress();
				return false;
			}
			m_record.m_sFileName = packed;
			m_sPackedAddonPath = QString::fromUtf8(packed.c_str());
		}
		m_nPublishState = PUBLISH_STATE_SUBMIT;
		m_nTimerId = startTimer(1, Qt::CoarseTimer);
		return true;
	}

	case PUBLISH_STATE_SUBMIT:
		StopTimer();
		ShowProgress("#Mintyard_Publish_Submitting");
		if (!m_bExisting)
		{
			const int fileType = (m_eMode == MINTYARD_MODE_ZARN_ITEMS || m_eMode == MINTYARD_MODE_TOLVA_ITEMS) ? 1 : 0;
			m_callCreate.Set(ugc->CreateItem(GetAppID(), fileType), this, &CPublishFileDialog::OnCreateItem);
			m_nPublishState = PUBLISH_STATE_WAIT;
			m_nTimerId = startTimer(1, Qt::CoarseTimer);
		}
		else
		{
			SubmitItem(false);
			m_nPublishState = PUBLISH_STATE_WAIT;
			// A failed step has reported itself and stopped; only a submit in flight waits.
			if (m_callSubmitUpdate.IsActive())
				m_nTimerId = startTimer(1, Qt::CoarseTimer);
		}
		return true;

	case PUBLISH_STATE_WAIT:
	default:
		return true;
	}
}

void CPublishFileDialog::OnItemTypeChanged()
{
	switch (m_eMode)
	{
	case MINTYARD_MODE_ZARN_ADDON:
		m_record.m_vecTags = { "Custom Game" };
		break;
	case MINTYARD_MODE_QUERN_ADDON:
		m_record.m_vecTags = { "Mirel Addon" };
		break;
	case MINTYARD_MODE_TOLVA_MAP:
		m_record.m_vecTags = { "Map" };
		m_record.m_vecTags.push_back("TL2");
		break;
	default:
		break;
	}
	SetChangeBit(CHANGE_TAGS);
}

bool CPublishFileDialog::ConfirmFolderUnchanged()
{
	IBrumeUGC *ugc = UGC();
	if (!ugc)
		return true;
	char folder[260] = {};
	uint64 size = 0;
	uint32 stamp = 0;
	if (!ugc->GetItemInstallInfo(m_record.m_nPublishedFileId, &size, folder, sizeof(folder), &stamp))
		return true;
	const QString file = FixSlashes(QString::fromUtf8(folder) + "\\publish_data.txt");
	KeyValues data("publish_data");
	if (!data.LoadFromFile(g_pFullFileSystem, file.toUtf8().constData()))
		return true;
	const QString oldFolder = QString::fromUtf8(data.GetString("source_folder"));
	const QString newFolder = m_pAddonCombo ? m_pAddonCombo->currentText() : QString();
	if (oldFolder.toLower() == newFolder.toLower())
		return true;
	return ShowMessage(this, QMessageBox::Warning, Translate("#Mintyard_Publish_FolderChangeTitle"),
			   Fmt("#Mintyard_Publish_FolderChange", QString::fromUtf8(m_record.m_sTitle.c_str()), oldFolder, newFolder), true) ==
		QMessageBox::Yes;
}

bool CPublishFileDialog::PackAddon(CUtlString &outPath)
{
	const CUtlString root = AddonsRoot();
	if (root.empty())
	{
		ShowError(Translate("#Mintyard_Publish_NoAddonsFolder"));
		return false;
	}
	const QString folder = FixSlashes(QString::fromUtf8(root.c_str()) + QString::fromUtf8(m_record.m_sSourceFolder.c_str()));
	const QString bdl = folder + ".bdl";
	if (!PackAddonFolder(folder.toUtf8().constData(), bdl.toUtf8().constData(), g_pFullFileSystem))
	{
		ShowError(Fmt("#Mintyard_Publish_BDLCreateFailure", QString::fromUtf8(m_record.m_sSourceFolder.c_str())));
		return false;
	}
	outPath = bdl.toUtf8().constData();
	return true;
}

bool CPublishFileDialog::WritePublishData(const CUtlString &folder)
{
	KeyValues data("publish_data");
	data.SetString("title", m_record.m_sTitle.c_str());
	data.SetString("source_folder", m_record.m_sSourceFolder.c_str());
	const qint64 now = QDateTime::currentSecsSinceEpoch();
	data.SetInt("publish_time", (int)now);
	data.SetString("publish_time_readable",
		QDateTime::fromSecsSinceEpoch(now).toString("MM/dd/yyyy hh:mm:ss AP").toUtf8().constData());
	const QString path = FixSlashes(QString::fromUtf8(folder.c_str()) + "publish_data.txt");
	return data.SaveToFile(g_pFullFileSystem, path.toUtf8().constData());
}

bool CPublishFileDialog::PrepareContent(CUtlString &outFolder, bool bNew)
{
	IFileSystem *fs = g_pFullFileSystem;
	const QString id = Id(m_record.m_nPublishedFileId);
	if (IsAddonMode(m_eMode))
	{
		const CUtlString root = AddonsRoot();
		if (root.empty() || !fs)
		{
			ShowError(Fmt("#Mintyard_Publish_Err_NoAddonDir", id));
			return false;
		}
		const QString folder = FixSlashes(QString::asprintf("%sbdls\\%llu\\", root.c_str(), (unsigned long long)m_record.m_nPublishedFileId));
		const QString target = FixSlashes(QString::asprintf("%sbdls\\%llu\\%llu.bdl", root.c_str(),
			(unsigned long long)m_record.m_nPublishedFileId, (unsigned long long)m_record.m_nPublishedFileId));
		fs->CreateDirHierarchy(folder.toUtf8().constData());
		if (!bNew)
			fs->RemoveFile(target.toUtf8().constData());
		// A new item leaves a file already at the target alone: the move fails instead of
		// replacing it (a rename on this platform would replace it silently).
		const bool bOccupied = bNew && fs->Size(target.toUtf8().constData()) >= 0;
		if (bOccupied || !fs->RenameFile(m_record.m_sFileName.c_str(), target.toUtf8().constData()))
		{
			DiscardPackedAddon();
			ShowError(Fmt("#Mintyard_Publish_Err_BDLAddFailed", id));
			return false;
		}
		m_sPackedAddonPath.clear();
		outFolder = folder.toUtf8().constData();
		WritePublishData(outFolder);
		return true;
	}

	const QString zip = m_sContentPath;
	const QByteArray zipBytes = zip.toUtf8();
	if (!fs || (m_nExpectedZipSize != 0 && fs->Size(zipBytes.constData()) != (int64)m_nExpectedZipSize) ||
		(m_nExpectedZipTime != 0 && (uint64)fs->GetFileTime(zipBytes.constData()) != m_nExpectedZipTime))
	{
		ShowError(Translate("#Mintyard_Publish_Err_InvalidZip"));
		return false;
	}
	const QString folder = FixSlashes(QString::asprintf("%s/mintyardupload_%llu/upload_%llx/", QDir::tempPath().toUtf8().constData(),
		(unsigned long long)m_record.m_nPublishedFileId, (unsigned long long)QDateTime::currentSecsSinceEpoch()));
	const QFileInfo info(zip);
	const QString target = FixSlashes(QString("%1%2.%3").arg(folder, info.completeBaseName(), info.suffix()));
	fs->CreateDirHierarchy(folder.toUtf8().constData());
	if (!fs->RenameFile(zipBytes.constData(), target.toUtf8().constData()))
	{
		ShowError(Fmt("#Mintyard_Publish_Err_MoveZipFailure", id, zip, target));
		return false;
	}
	m_sContentPath = target;
	m_record.m_sFileName = target.toUtf8().constData();
	outFolder = folder.toUtf8().constData();
	return true;
}

bool CPublishFileDialog::WritePreview(const QString &path)
{
	const QPixmap pixmap = m_pPreviewLabel->pixmap(Qt::ReturnByValue);
	Log_Msg(LOG_MINTYARD_MANAGER, "Writing [%dx%d] preview image to: %s\n", pixmap.width(), m_pPreviewLabel->height(),
		path.toUtf8().constData());
	QDir().mkpath(QFileInfo(path).path());
	if (pixmap.isNull() || !pixmap.save(path))
	{
		ShowError(Fmt("#Mintyard_PublishFailure_FailedToWritePreviewImage", path));
		return false;
	}
	m_sTempPreviewPath = path;
	m_listTempFiles << path;
	return true;
}

void CPublishFileDialog::SetTagsOnUpdate(IBrumeUGC *ugc, UGCUpdateHandle_t handle)
{
	ApplyTagBoxes(m_record.m_vecTags);
	std::vector<const char *> tags;
	for (const CUtlString &tag : m_record.m_vecTags)
		tags.push_back(tag.c_str());
	BrumeParamStringArray_t array{ tags.data(), (int32)tags.size() };
	ugc->SetItemTags(handle, &array);
}

void CPublishFileDialog::SubmitItem(bool bNew)
{
	IBrumeUGC *ugc = UGC();
	if (!ugc)
	{
		CloseProgress();
		StopTimer();
		return;
	}
	CUtlString folder;
	if (!PrepareContent(folder, bNew))
	{
		CloseProgress();
		StopTimer();
		return;
	}
	const QString preview = MakePreviewPath();
	if (!WritePreview(preview))
	{
		StopTimer();
		return;
	}
	m_hUpdate = ugc->StartItemUpdate(GetAppID(), m_record.m_nPublishedFileId);
	if (m_record.m_bOwnedByMe)
	{
		ugc->SetItemTitle(m_hUpdate, m_record.m_sTitle.c_str());
		ugc->SetItemDescription(m_hUpdate, m_record.m_sDescription.c_str());
		ugc->SetItemVisibility(m_hUpdate, (ERemoteStoragePublishedFileVisibility)m_record.m_eVisibility);
		ugc->SetItemPreview(m_hUpdate, preview.toUtf8().constData());
	}
	ugc->SetItemContent(m_hUpdate, folder.c_str());
	if (m_record.m_bOwnedByMe)
		SetTagsOnUpdate(ugc, m_hUpdate);

	CUtlString note;
	if (m_bEditOnly)
		note.clear();
	else if (bNew)
		note = QString("Created %1.").arg(QString::fromUtf8(m_record.m_sTitle.c_str())).toUtf8().constData();
	else if (!m_pChangeNoteEdit || m_pChangeNoteEdit->toPlainText().isEmpty())
		note = QString("Edited %1.").arg(QString::fromUtf8(m_record.m_sTitle.c_str())).toUtf8().constData();
	else
		note = m_pChangeNoteEdit->toPlainText().toUtf8().constData();

	OnBeforeSubmitItem(m_hUpdate);
	m_callSubmitUpdate.Set(ugc->SubmitItemUpdate(m_hUpdate, note.c_str()), this, &CPublishFileDialog::OnSubmitItemUpdate);
}

void CPublishFileDialog::SubmitEditOnly()
{
	ShowProgress("#Mintyard_Publish_Updating");
	IBrumeUGC *ugc = UGC();
	if (!ugc)
		return;
	const UGCUpdateHandle_t handle = ugc->StartItemUpdate(GetAppID(), m_record.m_nPublishedFileId);
	m_hUpdate = handle;
	const QByteArray title = m_pTitleEdit->text().toUtf8();
	if (title.constData() != m_record.m_sTitle)
	{
		ugc->SetItemTitle(handle, title.constData());
		m_record.m_sTitle = title.constData();
	}
	const QByteArray description = m_pDescriptionEdit->toPlainText().toUtf8();
	if (description.constData() != m_record.m_sDescription)
	{
		ugc->SetItemDescription(handle, description.constData());
		m_record.m_sDescription = description.constData();
	}
	if (m_nChangeBits & CHANGE_PREVIEW)
	{
		const QString preview = MakePreviewPath();
		WritePreview(preview);
		ugc->SetItemPreview(handle, preview.toUtf8().constData());
	}
	if (m_nChangeBits & CHANGE_TAGS)
		SetTagsOnUpdate(ugc, handle);
	if (m_nChangeBits & CHANGE_VISIBILITY)
	{
		const int visibility = VisibilityFromRadios();
		m_record.m_eVisibility = visibility < 0 ? 2 : visibility;
		ugc->SetItemVisibility(handle, (ERemoteStoragePublishedFileVisibility)m_record.m_eVisibility);
	}
	const BrumeAPICall_t call = ugc->SubmitItemUpdate(handle, "");
	if (call == k_uAPICallInvalid)
	{
		ShowError(Translate("#Mintyard_PublishFailure_BrumeAPI"));
		return;
	}
	m_callSubmitUpdate.Set(call, this, &CPublishFileDialog::OnSubmitItemUpdate);
}

void CPublishFileDialog::OnCreateItem(CreateItemResult_t *pResult, bool bIOFailure)
{
	if (pResult->m_eResult == k_EResultOK && !bIOFailure)
	{
		m_record.m_nPublishedFileId = pResult->m_nPublishedFileId;
		m_record.m_rtimeCreated = m_record.m_rtimeUpdated;
		Log_Msg(LOG_MINTYARD_MANAGER, "Create new mintyard item ( PublishFileID %llu).\n", (unsigned long long)m_record.m_nPublishedFileId);
		SubmitItem(true);
		return;
	}
	ReportFailure(pResult->m_eResult);
}

void CPublishFileDialog::OnSubmitItemUpdate(SubmitItemUpdateResult_t *pResult, bool bIOFailure)
{
	StopTimer();
	CloseProgress();
	if (pResult->m_eResult == k_EResultOK && !bIOFailure)
	{
		IBrumeUtils *utils = BrumeAPIContext()->BrumeUtils();
		const int universe = utils ? utils->GetConnectedUniverse() : k_EUniverseInvalid;
		UrlOpener()(QUrl(CMainWindow::BuildMintyardFileUrl(universe, CMainWindow::CommunityHost(), m_record.m_nPublishedFileId)));
		if (pResult->m_bUserNeedsToAcceptLegalAgreement)
			ShowMessage(this, QMessageBox::Warning, Translate("#Mintyard_Publish_SuccessTitle"),
				Translate("#Mintyard_Publish_SuccessTextNeedsToAccept"), false);
		else
			ShowMessage(this, QMessageBox::Information, Translate("#Mintyard_Publish_SuccessTitle"), Translate("#Mintyard_Publish_SuccessText"),
				false);
		m_bDirty = false;
		accept();
		return;
	}
	if (pResult->m_eResult == k_EResultOK)
	{
		ShowError(Translate("#Mintyard_PublishFailure_BrumeAPIResult"));
		return;
	}
	ReportFailure(pResult->m_eResult);
}

void CPublishFileDialog::DiscardPackedAddon()
{
	if (!m_sPackedAddonPath.isEmpty())
		QFile::remove(m_sPackedAddonPath);
	m_sPackedAddonPath.clear();
}

void CPublishFileDialog::ReportFailure(int result)
{
	StopTimer();
	CloseProgress();
	DiscardPackedAddon();
	QString text;
	switch (result)
	{
	case k_EResultNoConnection: text = Translate("#Mintyard_PublishFailure_NoConnection"); break;
	case k_EResultInvalidPassword: text = Translate("#Mintyard_PublishFailure_Password"); break;
	case k_EResultLimitedUserAccount: text = Translate("#Mintyard_PublishFailure_LimitedAccount"); break;
	default: text = Fmt("#Mintyard_PublishFailure_Generic", QString::number(result)); break;
	}
	ShowError(text);
}
