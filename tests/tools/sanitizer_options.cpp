// Part of the program when it is built with sanitizers. On the development gateway their reports go
// to a file that the tests look for; the order of libraries is another one when a test preloads its
// own.

extern "C" const char* __asan_default_options() {  // NOLINT(*-identifier*): fixed by the library
    return "log_path=/record/memory:exitcode=86:verify_asan_link_order=0";
}

extern "C" const char* __ubsan_default_options() {  // NOLINT(*-identifier*)
    return "print_stacktrace=1";
}
