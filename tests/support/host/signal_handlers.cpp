// What a host exports to get its fatal signals back from the tracing library.
#include <cstdio>
#include <cstdlib>

#include <unistd.h>

extern "C" __attribute__((visibility("default"))) void sigsegv_handler(int signal_number)
{
    dprintf(STDOUT_FILENO, "sigsegv_handler=%d\n", signal_number);
    exit(11);
}

extern "C" __attribute__((visibility("default"))) void sigbus_handler(int signal_number)
{
    dprintf(STDOUT_FILENO, "sigbus_handler=%d\n", signal_number);
}
