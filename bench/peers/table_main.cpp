// SPDX-License-Identifier: MIT
//
// Runs a table of cases: all, or the one that is named; -g lists them. With FLUSH_EACH_LINE a
// verdict is out before the next case begins, so that a crash does not lose it.
#include <stdio.h>
#include <string.h>

#include "table.h"

namespace {

const table_row *const suites[] = {
#define SUITE(name) name##_rows,
#include "suites.def"
#undef SUITE
};

int failures = 0;

void run(const table_row &row)
{
    if (const char *message = row.function()) {
        printf("%s FAIL: %s\n", row.name, message);
        failures++;
    } else {
        printf("%s PASS\n", row.name);
    }
#ifdef FLUSH_EACH_LINE
    fflush(stdout);
#endif
}

} // namespace

int main(int argc, char *argv[])
{
    const char *const chosen = argc > 1 ? argv[1] : nullptr;
    const bool is_list = chosen && strcmp(chosen, "-g") == 0;

    for (const table_row *suite : suites) {
        for (const table_row *row = suite; row->name; row++) {
            if (is_list) {
                puts(row->name);
            } else if (!chosen || strcmp(chosen, row->name) == 0) {
                run(*row);
            }
        }
    }
    return failures != 0;
}
