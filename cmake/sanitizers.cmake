if(KELMORA_SANITIZERS)
    add_compile_options(-fsanitize=${KELMORA_SANITIZERS} -fno-sanitize-recover=all
                        -fno-omit-frame-pointer)
    add_link_options(-fsanitize=${KELMORA_SANITIZERS})
endif()
if(KELMORA_FUZZERS)
    # The counters that lead a fuzzer; its main program is linked where there is a target for it.
    add_compile_options(-fsanitize=fuzzer-no-link)
    add_link_options(-fsanitize=fuzzer-no-link)
endif()
