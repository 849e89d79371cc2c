#ifndef OSTRUM_HOST_ABI_HOST_SERVICES_H
#define OSTRUM_HOST_ABI_HOST_SERVICES_H
// The platform's services as this library sees them: every one a weak reference whose address is null
// where no platform is loaded. Nothing else in source/ includes the platform's header.
#define QEL_OPTIONAL
#include "qel_platform.h"
#endif
