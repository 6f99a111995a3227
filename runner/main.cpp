// SPDX-License-Identifier: MIT
//
// tavor holds libkel to its contract. This file reads the command line and runs the chosen
// mode.
#include <signal.h>
#include <stdlib.h>
#include <unistd.h>

#include "kelapi/client.h"
#include "runner/run.h"
#include "runner/tests.h"

namespace {

struct run_options {
    int continue_after_failure;
    int random_order;
    int loop;
    int single_test;
    int single_test_number;
};

// Options take effect in the order given. The first -g or -h ends the program.
run_options parse_options(int argc, char *argv[])
{
    run_options options = {1, 0, 0, 0, -1};

    for (int option; (option = getopt(argc, argv, "fhlrtgs:")) != -1;) {
        switch (option) {
        case 'f':
            options.continue_after_failure = 0;
            break;
        case 'h':
            print_usage();
            exit(0);
        case 'l':
            options.loop = 1;
            break;
        case 'r':
            options.random_order = 1;
            break;
        case 't':
            alt_output_mode = 1;
            break;
        case 'g':
            test_guide();
            exit(0);
        case 's':
            options.single_test = 1;
            options.single_test_number = atoi(optarg); // text that is no number counts as 0
            break;
        default:
            print_usage();
            exit(1);
        }
    }
    return options;
}

void run_tests(const run_options &options)
{
    if (options.random_order) {
        run_tests_random(options.continue_after_failure);
    } else if (options.loop) {
        run_tests_loop(options.continue_after_failure);
    } else {
        run_tests_once(options.continue_after_failure);
    }
}

} // namespace

int main(int argc, char *argv[])
{
    signal(SIGINT, sig_handler);
    const run_options options = parse_options(argc, argv);
    if (!alt_output_mode) {
        print_header();
    }
    kel_nocrash_set();
    if (options.single_test) {
        run_single_test(options.single_test_number);
    } else {
        enable_tests(argc - optind, argv + optind);
        run_tests(options);
    }
    print_results();
    return 0;
}
