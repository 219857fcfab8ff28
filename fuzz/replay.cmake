# The program that replays all seeds, and all inputs that ever failed, without libFuzzer:
# they are part of it, as every camera sees the programs of tests/ only.
set(fuzz_dir ${CMAKE_CURRENT_LIST_DIR})
include(${fuzz_dir}/parsers.cmake)
file(GLOB inputs CONFIGURE_DEPENDS ${fuzz_dir}/seeds/*/* ${fuzz_dir}/found/*/*)

add_custom_command(OUTPUT fuzz_inputs.inc
  COMMAND ${CMAKE_COMMAND} -DOUTPUT=fuzz_inputs.inc -P ${fuzz_dir}/embed.cmake
  DEPENDS ${inputs} ${fuzz_dir}/embed.cmake ${fuzz_dir}/parsers.cmake
  VERBATIM)

set(sources ${fuzz_dir}/replay.cpp ${fuzz_dir}/support.cpp ${CMAKE_CURRENT_BINARY_DIR}/fuzz_inputs.inc)
foreach(parser IN LISTS KT_PARSERS)
  list(APPEND sources ${fuzz_dir}/${parser}_fuzz.cpp)
  set_source_files_properties(${fuzz_dir}/${parser}_fuzz.cpp PROPERTIES
    COMPILE_DEFINITIONS LLVMFuzzerTestOneInput=fuzz_${parser})
endforeach()
kt_test(fuzz_replay ${sources})
target_include_directories(fuzz_replay PRIVATE ${CMAKE_CURRENT_BINARY_DIR})
target_link_libraries(fuzz_replay PRIVATE kt_base_for_tests PkgConfig::MXML PkgConfig::CRYPTO)
