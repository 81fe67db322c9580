// Part of the program when it is built with sanitizers. Reports go to a file that the tests look
// for. The order of libraries is not checked, since tests preload their own. Complete call stacks
// distinguish the line editor's leaks from the shell's. memmem is not intercepted, because the
// check reads all of a long text at each search in it.

extern "C" const char* __asan_default_options() {
    return "log_path=/record/memory:exitcode=86:verify_asan_link_order=0:fast_unwind_on_malloc=0:"
           "intercept_memmem=0";
}

extern "C" const char* __ubsan_default_options() {
    return "print_stacktrace=1";
}

extern "C" const char* __lsan_default_options() {
    return "print_suppressions=0";
}

// The functions of the line editor's keys leak some undo and kill-ring entries after many keys. The
// line returned to the shell is not allocated there.
extern "C" const char* __lsan_default_suppressions() {
    return "leak:_rl_dispatch_subseq\n";
}
