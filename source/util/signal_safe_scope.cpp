#include "util/signal_safe_scope.h"

namespace ostrum {

namespace {

// In the static TLS block: the first access of another one may allocate.
constinit thread_local bool in_signal_safe_scope [[gnu::tls_model("initial-exec")]] = false;

} // namespace

signal_safe_scope::signal_safe_scope() : was_safe_(in_signal_safe_scope)
{
    in_signal_safe_scope = true;
}

signal_safe_scope::~signal_safe_scope()
{
    in_signal_safe_scope = was_safe_;
}

bool must_be_signal_safe()
{
    return in_signal_safe_scope;
}

} // namespace ostrum
