#include "toolframework/platformservices.h"

#include <cstring>
#include <mutex>

namespace
{
// Registrations run from static initialisers of libraries, possibly while another library is
// loaded on another thread.
std::mutex &ListMutex()
{
	static std::mutex mutex;
	return mutex;
}
CPlatformInterfaceReg *s_pHead = nullptr;
} // namespace

CPlatformInterfaceReg::CPlatformInterfaceReg(InstantiateInterfaceFn fn, const char *name) : m_CreateFn(fn), m_pName(name)
{
	std::lock_guard<std::mutex> lock(ListMutex());
	m_pNext = s_pHead;
	s_pHead = this;
}

CPlatformInterfaceReg::~CPlatformInterfaceReg()
{
	std::lock_guard<std::mutex> lock(ListMutex());
	for (CPlatformInterfaceReg **link = &s_pHead; *link; link = &(*link)->m_pNext)
	{
		if (*link == this)
		{
			*link = m_pNext;
			break;
		}
	}
}

void *PlatformInterface_Create(const char *name, int *returnCode)
{
	InstantiateInterfaceFn create = nullptr;
	{
		std::lock_guard<std::mutex> lock(ListMutex());
		for (CPlatformInterfaceReg *reg = s_pHead; reg && name; reg = reg->m_pNext)
		{
			if (strcmp(reg->m_pName, name) == 0)
			{
				create = reg->m_CreateFn;
				break;
			}
		}
	}
	void *object = create ? create() : nullptr;
	if (returnCode)
		*returnCode = object ? IFACE_OK : IFACE_FAILED;
	return object;
}
