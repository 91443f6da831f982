#include <Host.h>

#if !defined(HOST_IS_COMPILED) || !defined(SCALE_IS_LINKED) || !defined(Host_EXPORTS)
#error not compiled as in the host
#endif
static_assert(__cplusplus > 201703L, "not the host's standard");

extern "C" int Change()
{
    return Scaled(AddToCounter() + counter);
}
