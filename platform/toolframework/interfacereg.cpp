#include "toolframework/interfacereg.h"

#include <cstring>

InterfaceReg *InterfaceReg::s_pInterfaceRegs = nullptr;

InterfaceReg::InterfaceReg(InstantiateInterfaceFn fn, const char *name) : m_CreateFn(fn), m_pName(name)
{
	m_pNext = s_pInterfaceRegs;
	s_pInterfaceRegs = this;
}

void *InterfaceReg_CreateInterface(const char *name, int *returnCode)
{
	for (InterfaceReg *reg = InterfaceReg::s_pInterfaceRegs; reg; reg = reg->m_pNext)
	{
		if (name && strcmp(reg->m_pName, name) == 0)
		{
			void *object = reg->m_CreateFn();
			if (returnCode)
				*returnCode = IFACE_OK;
			return object;
		}
	}
	if (returnCode)
		*returnCode = IFACE_FAILED;
	return nullptr;
}
