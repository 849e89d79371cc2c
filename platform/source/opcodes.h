#ifndef QEL_OPCODES_H
#define QEL_OPCODES_H

namespace qel {

// Reads the names of section "opcodes" of qel.conf, again if called again. False when memory is short.
bool load_opcode_names();

} // namespace qel
#endif
