// A service of a library of its own, to show that the host's factory finds what a platform
// library registers.
#pragma once

#define SELFREGISTERING_SERVICE_VERSION "SelfRegisteringTestService001"

class ISelfRegisteringService
{
public:
	virtual int Answer() = 0;

protected:
	~ISelfRegisteringService() = default;
};
