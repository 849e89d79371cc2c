// The entry that every host calls.
#include "opcodes.h"
#include "qel_platform.h"

int qel_platform_init(void)
{
    return qel::load_opcode_names() ? 0 : -1;
}
