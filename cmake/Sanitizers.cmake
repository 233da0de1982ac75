# Instruments everything that is built here, when asked to.
if(KELVO_SANITIZE OR KELVO_FUZZ)
  add_compile_definitions(KELVO_INSTRUMENTED)  # for tests that measure time
  add_compile_options(-fsanitize=address,undefined -fno-sanitize-recover=all
                      -fno-omit-frame-pointer)
  add_link_options(-fsanitize=address,undefined)
endif()
if(KELVO_FUZZ)
  add_compile_options(-fsanitize=fuzzer-no-link)
  # The fuzzers bring the run-time library that has the counters.
  add_link_options(-fsanitize=fuzzer-no-link)
endif()
