// The wizard's input page: a widget tree built from the session's element tree, each leaf bound
// to one configuration element. The element validates; the widget only paints what it says.
// Every change of a value travels up to the session, whose listeners (every input, and the
// wizard) revalidate, so one edit refreshes the whole page and the wizard's ready status.
#pragma once

#include <QPointer>
#include <QWidget>

#include "core/utlstring.h"
#include "core/utlvector.h"
#include "mintyardtoolutils/core/importsession.h"

class CMeshBudgetService;
class CQDroppableLineEdit;
class CQMeshBudgetTable;
class CQMintyardUI_Image;
class CQSafeWordWrapLabel;
class QCheckBox;
class QHBoxLayout;
class QLabel;
class QPushButton;
class QVBoxLayout;
class CQMintyardUI_Input;

// The browse filters of file inputs, by index.
enum EMintyardBrowseFilter
{
	MINTYARD_FILTER_GEOMETRY = 0,
	MINTYARD_FILTER_IMAGE = 1,
	MINTYARD_FILTER_PNG = 2,
	MINTYARD_FILTER_BMP = 3,
	MINTYARD_FILTER_ANIMATION = 4,
	MINTYARD_FILTER_PSD = 5,
	MINTYARD_FILTER_WAV = 6,
	MINTYARD_FILTER_COUNT,
};
// "<translated label>(<extensions>)".
QString MintyardBrowseFilter(int nFilter);

// A small widget: a pixmap on the left, a translated text on the right, in a colour.
QWidget *AddFlagLabel(QWidget *pParent, QLayout *pLayout, const char *pszIcon, const QString &text);

// A titled group, optionally collapsible. Inputs below it register themselves; a collapsed
// section shows their messages as they were at the last toggle.
class CQMintyardUI_Section : public QWidget
{
	Q_OBJECT

public:
	CQMintyardUI_Section(QWidget *pParent, const char *pszTitle, const char *pszUrl, bool bCollapsible);

	QVBoxLayout *ContentsLayout() const { return m_pContentsLayout; }
	QWidget *ContentsArea() const { return m_pContents; }
	QWidget *SummaryArea() const { return m_pSummary; }
	bool IsExpanded() const { return m_bExpanded; }
	QPushButton *ToggleButton() const { return m_pToggle; }
	void RegisterInput(CQMintyardUI_Input *pInput);
	int RegisteredInputCount() const { return (int)m_Inputs.size(); }
	QLabel *SummaryLabel(int nIndex) const { return m_Inputs[nIndex].m_pLabel; }

public Q_SLOTS:
	void OnToggle();

private:
	struct Registered_t
	{
		QPointer<CQMintyardUI_Input> m_pInput;
		QLabel *m_pLabel;
	};
	void FillSummaryLabel(const Registered_t &entry);

	bool m_bExpanded = true;
	QPushButton *m_pToggle = nullptr;
	QLabel *m_pTitle = nullptr;
	QWidget *m_pSummary = nullptr;
	QVBoxLayout *m_pSummaryLayout = nullptr;
	QWidget *m_pContents = nullptr;
	QVBoxLayout *m_pContentsLayout = nullptr;
	CUtlVector<Registered_t> m_Inputs;
};

// A labelled line edit bound to one element. Made in two steps: the constructor builds the
// widgets, Bind() (called by MakeInput) reads the value and starts listening.
class CQMintyardUI_Input : public QWidget, public IMintyardImportSessionListener
{
	Q_OBJECT

public:
	CQMintyardUI_Input(QWidget *pParent, CMintyardCfgElement *pElement);
	~CQMintyardUI_Input() override;

	// The element's value into the edit, signals, the first validation, the session listener,
	// and registration with every section above.
	void Bind();

	void OnSessionChanged() override { UpdateValidity(); }

	CMintyardCfgElement *Element() const { return m_pElement; }
	CQDroppableLineEdit *LineEdit() const { return m_pLineEdit; }
	QLabel *MessageLabel() const { return m_pMessageLabel; }
	QLabel *TitleLabel() const { return m_pTitleLabel; }
	QVBoxLayout *FlagsColumn() const { return m_pFlagsColumn; }
	QHBoxLayout *InputRow() const { return m_pInputRow; }
	bool IsOptional() const { return m_bOptional; }
	bool HasErrors() const { return m_bHasErrors; }
	const QString &MessageText() const { return m_MessageText; }

	virtual void GetValue(CUtlString &out) const = 0;
	virtual void SetValue(const char *pszText) = 0;

public Q_SLOTS:
	virtual void OnStringChanged();
	void UpdateValidity();

Q_SIGNALS:
	void StringChanged();

protected:
	CMintyardCfgElement *m_pElement;
	QLabel *m_pTitleLabel = nullptr;
	CQDroppableLineEdit *m_pLineEdit = nullptr;
	QLabel *m_pMessageLabel = nullptr;
	QVBoxLayout *m_pLeftColumn = nullptr;
	QHBoxLayout *m_pInputRow = nullptr;
	QVBoxLayout *m_pRightColumn = nullptr;
	QVBoxLayout *m_pFlagsColumn = nullptr;
	QHBoxLayout *m_pMessageRow = nullptr;
	bool m_bOptional = false;
	bool m_bHasErrors = false;
	QString m_MessageText;
	CMintyardImportSession *m_pSession = nullptr;
};

// A plain string input; the value element is the bound element.
class CQMintyardUI_String : public CQMintyardUI_Input
{
	Q_OBJECT

public:
	CQMintyardUI_String(QWidget *pParent, CMintyardCfgElement *pElement);
	void GetValue(CUtlString &out) const override;
	void SetValue(const char *pszText) override;

protected:
	CMintyardCfgElement *m_pValueElement;
};

// A string with Browse and file drops.
class CQMintyardUI_File : public CQMintyardUI_String
{
	Q_OBJECT

public:
	CQMintyardUI_File(QWidget *pParent, CMintyardCfgElement *pElement, int nFilter);
	QPushButton *BrowseButton() const { return m_pBrowse; }
	int Filter() const { return m_nFilter; }

public Q_SLOTS:
	void OnBrowse();

protected:
	QPushButton *m_pBrowse = nullptr;
	int m_nFilter;
};

// An animation file, with its flags.
class CQMintyardUI_Anim : public CQMintyardUI_File
{
	Q_OBJECT

public:
	CQMintyardUI_Anim(QWidget *pParent, CMintyardCfg_ZarnModel::CAnim *pAnim);
};

// A file with a 64 by 64 preview of the image.
class CQMintyardUI_Image : public CQMintyardUI_File
{
	Q_OBJECT

public:
	CQMintyardUI_Image(QWidget *pParent, CMintyardCfgElement *pElement, int nFilter);
	QLabel *Preview() const { return m_pPreview; }

public Q_SLOTS:
	void UpdateImagePreview();

private:
	QLabel *m_pPreview = nullptr;
};

// Makes an input and binds it.
template <typename T, typename... Args> T *MakeInput(Args &&...args)
{
	T *pInput = new T(static_cast<Args &&>(args)...);
	pInput->Bind();
	return pInput;
}

// All inputs of one model element.
class CQMintyardUI_ZarnModel : public QWidget
{
	Q_OBJECT

public:
	CQMintyardUI_ZarnModel(QWidget *pParent, CMintyardCfg_ZarnModel *pModel, CMeshBudgetService *pBudgetService);
	CQMeshBudgetTable *BudgetTable() const { return m_pBudget; }
	QCheckBox *CustomSkeletonCheck() const { return m_pCustomSkeleton; }

public Q_SLOTS:
	void OnSkeletonCheckboxToggled();

private:
	CMintyardCfg_ZarnModel *m_pModel;
	CQMeshBudgetTable *m_pBudget = nullptr;
	QCheckBox *m_pCustomSkeleton = nullptr;
};

// The animations of a bundle.
class CQMintyardUI_AnimBundle : public QWidget
{
	Q_OBJECT

public:
	CQMintyardUI_AnimBundle(QWidget *pParent, CMintyardCfg_ZarnModel::CAnimBundle *pBundle);
};

// The eleven texture slots of a material, the sibling auto-fill and the G1 conversions.
class CQMintyardUI_Material : public QWidget
{
	Q_OBJECT

public:
	CQMintyardUI_Material(QWidget *pParent, CMintyardCfg_ZarnMaterial *pMaterial);
	CQMintyardUI_Image *Slot(int nIndex) const { return m_pSlots[nIndex]; }

public Q_SLOTS:
	void OnImportG1Mask1();
	void OnImportG1Mask2();
	void OnImportG1Normal();
	void OnImportG1Color();
	void OnTextureSlotChanged(int nSlot);

private:
	QPushButton *MakeG1Button(const char *pszText, const char *pszTip, const char *pszSlot);
	// The source of a conversion, chosen by the author, read; null when cancelled or unreadable.
	bool BrowseG1Source(const char *pszErrorToken, QString &path, CUtlString &bytes);
	void ImportG1Mask(int nMask);

	bool m_bSuppressAutofill = false;
	CQMintyardUI_Image *m_pSlots[CMintyardCfg_ZarnMaterial::TEXTURE_COUNT] = {};
};

// One emoticon: its image and its two strings.
class CQMintyardUI_EmoticonImage : public CQMintyardUI_Section
{
	Q_OBJECT

public:
	CQMintyardUI_EmoticonImage(QWidget *pParent, CMintyardCfg_ZarnImageSet::CEmoticon *pEmoticon, bool bFirst);
};

class CQMintyardUI_ZarnImageSet : public QWidget
{
	Q_OBJECT

public:
	CQMintyardUI_ZarnImageSet(QWidget *pParent, CMintyardCfg_ZarnImageSet *pImageSet);
};

class CQMintyardUI_ZarnSoundSet : public QWidget
{
	Q_OBJECT

public:
	CQMintyardUI_ZarnSoundSet(QWidget *pParent, CMintyardCfg_ZarnSoundSet *pSoundSet);
};

class CQMintyardUI_MiscData : public QWidget
{
	Q_OBJECT

public:
	CQMintyardUI_MiscData(QWidget *pParent, CMintyardCfg_MiscData *pMiscData);
};

// The page: rebuilt from the session whenever one is attached.
class CQImportInputPicker : public QWidget
{
	Q_OBJECT

public:
	explicit CQImportInputPicker(QWidget *pParent = nullptr);
	~CQImportInputPicker() override;

	void AttachSession(CMintyardImportSession *pSession);
	void DetachSession();

	CMintyardImportSession *Session() const { return m_pSession; }
	QWidget *Content() const { return m_pContent; }
	// The inputs of the page, in the order they were built.
	QList<CQMintyardUI_Input *> Inputs() const;
	// The input bound to an element, or null.
	CQMintyardUI_Input *FindInput(const CMintyardCfgElement *pElement) const;
	CMeshBudgetService *BudgetService() const { return m_pBudgetService; }

private:
	CMintyardImportSession *m_pSession = nullptr;
	QWidget *m_pContent = nullptr;
	QVBoxLayout *m_pLayout = nullptr;
	CMeshBudgetService *m_pBudgetService = nullptr;
};
