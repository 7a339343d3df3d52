/* A caller with events of its own around an operation, with text that would break a page or a terminal. */
#include <lttng/tracef.h>
#include <zel_core_term/zel_core_term.h>

int main(int count, char **arguments)
{
    lttng_ust_tracef("id 7 <script>alert(1)</script> \033[31m %s", count > 1 ? arguments[1] : "");
    uint32_t result = count > 1 ? 1 : zel_core_term_udp_session_release(7);
    lttng_ust_tracef("of the next operation");
    return result == 0;
}
