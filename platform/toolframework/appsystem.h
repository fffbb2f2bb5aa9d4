// App systems: the services of the tool host, connected through factories of interfaces by name.
#pragma once

#include "core/platform.h"

// A factory of interfaces: the object registered under `name`, or null. On a hit *returnCode
// (when given) becomes IFACE_OK, on a miss IFACE_FAILED.
typedef void *(*CreateInterfaceFn)(const char *name, int *returnCode);

enum
{
	IFACE_OK = 0,
	IFACE_FAILED = 1,
};

enum InitReturnVal_t
{
	INIT_FAILED = 0,
	INIT_OK,
};

enum AppSystemTier_t
{
	APP_SYSTEM_TIER0 = 0,
	APP_SYSTEM_TIER1,
	APP_SYSTEM_TIER2,
	APP_SYSTEM_TIER3,
	APP_SYSTEM_TIER_OTHER,
};

// One entry of a dependency table; a table ends with an entry of null names.
struct AppSystemInfo_t
{
	const char *m_pModuleName;
	const char *m_pInterfaceName;
};

class IAppSystem
{
public:
	virtual bool Connect(CreateInterfaceFn factory) = 0;
	virtual void Disconnect() = 0;
	virtual void *QueryInterface(const char *interfaceName) = 0;
	virtual InitReturnVal_t Init() = 0;
	virtual void Shutdown() = 0;
	virtual void PreShutdown() = 0;
	virtual const AppSystemInfo_t *GetDependencies() = 0;
	virtual AppSystemTier_t GetTier() = 0;
	virtual void Reconnect(CreateInterfaceFn factory, const char *interfaceName) = 0;
	virtual bool IsSingleton() = 0;
	virtual int GetBuildType() = 0;

protected:
	virtual ~IAppSystem() = default;
};
