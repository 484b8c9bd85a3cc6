"""What tests cannot ask of programs that run in qemu's user-mode emulator."""

# A pattern of tests, and what the emulator does there that no kernel does.
DIFFERENCES = {
    r"test_helper_inherits_what_the_launcher_got": "the environment gets another order",
    r"test_executes_itself_again.*\[second execution\]|test_failed_exec_is_not_repeated|"
    r"test_loads_no_file_of_the_c_library": "strace shows the emulator's calls",
    r"test_reports_a_stack_limit_that_cannot_be_raised": "stack limits are its own",
    r"\[(SIGABRT|SIGBUS|SIGFPE|SIGILL|SIGQUIT|SIGSEGV|SIGTRAP)\]":
        "a signal that dumps core ends a program otherwise, with a message",
    r"SIGRTM(IN|AX)\]|test_value_of_a_queued_signal_is_passed_on":
        "the last real-time signals are its own",
    r"test_program_that_was_removed": "the program is a file of the emulator",
    r"test_reaper_": "process 1 is the emulator, and it does not tell of a child subreaper",
    r"test_mpiruninfo": "the machine's shell is a program for another kind of processor",
}
