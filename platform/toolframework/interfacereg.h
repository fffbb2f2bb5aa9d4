// The list of interfaces that one module (a tool library, the host) hands out by name. Each
// module links its own copy of this list (the mintyard_interfacereg static library, built with
// hidden symbols), so that two modules never see each other's entries.
#pragma once

#include "toolframework/appsystem.h"

typedef void *(*InstantiateInterfaceFn)();

class InterfaceReg
{
public:
	// Registers at the head of the module's list: the most recent registration comes first.
	InterfaceReg(InstantiateInterfaceFn fn, const char *name);

	InstantiateInterfaceFn m_CreateFn;
	const char *m_pName;
	InterfaceReg *m_pNext;

	static InterfaceReg *s_pInterfaceRegs;
};

// The module's factory: walks the list, compares names exactly, byte for byte.
void *InterfaceReg_CreateInterface(const char *name, int *returnCode);

// Registers the address of a static object under an interface name.
#define EXPOSE_SINGLE_INTERFACE_GLOBALVAR(className, interfaceName, versionName, globalVarName) \
	static void *__Create##className##interfaceName##_interface() \
	{ \
		return static_cast<interfaceName *>(&globalVarName); \
	} \
	static InterfaceReg __g_Create##className##interfaceName##_reg(__Create##className##interfaceName##_interface, versionName)
