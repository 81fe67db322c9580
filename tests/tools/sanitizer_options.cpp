// Part of the program when it is built with sanitizers. On the development gateway their reports go
// to a file that the tests look for; the order of libraries is another one when a test preloads its
// own; and without whole call stacks nobody could tell the line editor's leaks from the shell's.
// The check of a search would look at all of a long text again for every place that is found in it.

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

// The functions behind the line editor's keys forget some of what they could undo or put back, when
// somebody presses enough of them. The line that is handed to the shell does not come from there.
extern "C" const char* __lsan_default_suppressions() {
    return "leak:_rl_dispatch_subseq\n";
}
