// A tool for the host's tests: it writes every call it gets, one line each, to the file named by
// $MINTYARD_RECORD_FILE. With $MINTYARD_RECORD_VETO set it vetoes the first quit and closes its
// own window a moment later, as an author who answered "keep editing" and then closed it.
#include <cstdio>
#include <cstdlib>

#include <QTimer>
#include <QWidget>

#include "toolframework/convar.h"
#include "toolframework/interfacereg.h"
#include "toolframework/toolsystem.h"

namespace
{
ConVar s_RecordedVariable("recording_tool_variable", "default");

void Record(const char *fmt, const char *argument = "")
{
	const char *path = getenv("MINTYARD_RECORD_FILE");
	if (!path)
		return;
	if (FILE *file = fopen(path, "a"))
	{
		fprintf(file, fmt, argument);
		fputc('\n', file);
		fclose(file);
	}
}

class CRecordingTool final : public CBaseToolSystem2
{
public:
	bool Connect(CreateInterfaceFn factory) override
	{
		const bool ok = CBaseToolSystem2::Connect(factory);
		Record(ok ? "Connect ok" : "Connect failed");
		return ok;
	}
	void Disconnect() override
	{
		Record("Disconnect");
		CBaseToolSystem2::Disconnect();
	}
	InitReturnVal_t Init() override
	{
		Record("Init");
		return CBaseToolSystem2::Init();
	}
	void Shutdown() override
	{
		Record("Shutdown");
		CBaseToolSystem2::Shutdown();
	}
	bool InitTool(CreateInterfaceFn factory, uint8 toolIndex) override
	{
		Record("InitTool variable=%s", s_RecordedVariable.GetString());
		m_pWindow = new QWidget();
		m_pWindow->setAttribute(Qt::WA_DeleteOnClose);
		QObject::connect(m_pWindow, &QObject::destroyed, [] { Record("WindowDestroyed"); });
		return CBaseToolSystem2::InitTool(factory, toolIndex);
	}
	void PostInitTool() override
	{
		Record("PostInitTool");
		m_pWindow->show();
	}
	void RunToolFrame() override
	{
		if (!m_bFrameRecorded)
			Record("RunToolFrame");
		m_bFrameRecorded = true;
	}
	bool VetoToolQuit() override
	{
		const bool bVeto = getenv("MINTYARD_RECORD_VETO") && !m_bVetoed;
		Record(bVeto ? "VetoToolQuit yes" : "VetoToolQuit no");
		if (bVeto)
		{
			m_bVetoed = true;
			QTimer::singleShot(50, m_pWindow, [this] { m_pWindow->close(); });
		}
		return bVeto;
	}

private:
	QWidget *m_pWindow = nullptr;
	bool m_bFrameRecorded = false;
	bool m_bVetoed = false;
};

CRecordingTool s_Tool;
EXPOSE_SINGLE_INTERFACE_GLOBALVAR(CRecordingTool, IToolSystem2, TOOLSYSTEM2_INTERFACE_VERSION, s_Tool);
} // namespace

extern "C" __attribute__((visibility("default"))) void *CreateInterface(const char *name, int *returnCode)
{
	Record("CreateInterface %s", name ? name : "");
	return InterfaceReg_CreateInterface(name, returnCode);
}
