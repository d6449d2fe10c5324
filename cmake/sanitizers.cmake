if(KELMORA_SANITIZERS)
    add_compile_options(-fsanitize=${KELMORA_SANITIZERS} -fno-sanitize-recover=all
                        -fno-omit-frame-pointer)
    add_link_options(-fsanitize=${KELMORA_SANITIZERS})
endif()
