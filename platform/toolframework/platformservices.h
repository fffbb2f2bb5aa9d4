// Services that platform libraries hand to the host's factory by registering themselves: a library
// (the resource compiler, the item tool model, ...) exposes an interface under its version name at
// load time, and the host's factory finds it there after its own services, with no edit to the
// tool framework. One list for the whole process, kept by this shared library.
#pragma once

#include "toolframework/appsystem.h"
#include "toolframework/interfacereg.h"

class CPlatformInterfaceReg
{
public:
	// Adds the interface at the head of the process's list: the most recent registration wins.
	CPlatformInterfaceReg(InstantiateInterfaceFn fn, const char *name);
	// Takes the entry out again (a library unloaded with dlclose must not stay listed).
	~CPlatformInterfaceReg();

	CPlatformInterfaceReg(const CPlatformInterfaceReg &) = delete;
	CPlatformInterfaceReg &operator=(const CPlatformInterfaceReg &) = delete;

private:
	InstantiateInterfaceFn m_CreateFn;
	const char *m_pName;
	CPlatformInterfaceReg *m_pNext;
	friend void *PlatformInterface_Create(const char *name, int *returnCode);
};

// The registered interface of that name (compared exactly), or null; *returnCode as for a factory.
void *PlatformInterface_Create(const char *name, int *returnCode);

// Registers the address of a static object of a platform library under an interface name.
#define EXPOSE_PLATFORM_INTERFACE_GLOBALVAR(className, interfaceName, versionName, globalVarName) \
	static void *__CreatePlatform##className##interfaceName##_interface() \
	{ \
		return static_cast<interfaceName *>(&globalVarName); \
	} \
	static CPlatformInterfaceReg __g_CreatePlatform##className##interfaceName##_reg( \
		__CreatePlatform##className##interfaceName##_interface, versionName)
