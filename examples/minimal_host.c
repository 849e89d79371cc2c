/* The smallest host: three nested levels of operations and functions, and where their trace went. */
#include <glob.h>
#include <stdio.h>
#include <stdlib.h>
#include <unistd.h>

#include "ostrum.h"
#include "qel_platform.h"

enum { OP_ORDER = 100, OP_PAY = 101 };

static void ask_the_bank(int amount)
{
    ostrum_log_start_fn(0, "ask_the_bank", 0, "minimal_host", __FILE__, __LINE__, "", 0);
    usleep(2000);
    const int refused = amount > 90;
    ostrum_log_end_fn(0, "ask_the_bank", 0, refused, "minimal_host", __FILE__, __LINE__, "", 0,
                      refused ? 300 : 0, refused ? QEL_CLASS_APPL : 0, refused ? QEL_LOC_APPL : 0);
}

static void pay(int amount)
{
    qel_errbuf_t error = {0};
    ostrum_log_start_op(OP_PAY, "pay", 0, NULL, __FILE__, __LINE__, "/invoice", amount, 0, &error);
    ask_the_bank(amount);
    ostrum_log_end_op(OP_PAY, "pay", 0, NULL, NULL, 0, __FILE__, __LINE__, "/invoice", amount, 0, &error);
}

static void order(int amount)
{
    qel_errbuf_t error = {0};
    ostrum_log_start_op(OP_ORDER, "order", 0, NULL, __FILE__, __LINE__, "/order", amount, 0, &error);
    for (int part = 0; part < 3; ++part)
        pay(amount + part);
    ostrum_log_end_op(OP_ORDER, "order", 0, NULL, NULL, 0, __FILE__, __LINE__, "/order", amount, 0, &error);
}

int main(void)
{
    setenv("OSTRUM_VAR_TIME", "3", 0);        /* aggregate nested levels too, to a file; unless set */
    setenv("OSTRUM_DATA_FILE_RESET", "1", 0); /* start from that value, not from an older data file */
    qel_platform_init();                      /* without a platform the library works as well */
    if (ostrum_init() != 0)
        return EXIT_FAILURE; /* the reasons are on standard error */

    for (int amount = 0; amount < 100; amount += 10)
        order(amount);
    ostrum_release_liptr_by_key(getpid(), -1); /* flushes now; the end of the program would as well */

    char pattern[64];
    snprintf(pattern, sizeof pattern, "./%d_*.plog.txt", getpid());
    glob_t found;
    const int missing = glob(pattern, 0, NULL, &found);
    for (size_t i = 0; missing == 0 && i < found.gl_pathc; ++i)
        printf("trace file: %s\n", found.gl_pathv[i]);
    globfree(&found);
    printf("live counters: ./ostrum_data.dat\n");
    return missing == 0 ? EXIT_SUCCESS : EXIT_FAILURE;
}
