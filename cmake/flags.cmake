# Compiler and linker settings, as interface targets: kt_warnings for all code,
# kt_library_flags for what becomes part of the shared object.

add_library(kt_warnings INTERFACE)
target_compile_options(kt_warnings INTERFACE
  -Wall -Wextra -Wconversion -Wshadow -Werror -Wformat=2
  $<$<COMPILE_LANGUAGE:CXX>:-Wnon-virtual-dtor -Woverloaded-virtual>)
target_compile_definitions(kt_warnings INTERFACE _GNU_SOURCE _FILE_OFFSET_BITS=64)
if(KT_SANITIZE)
  target_compile_options(kt_warnings INTERFACE
    -fsanitize=address,undefined -fno-sanitize=vptr -fno-sanitize-recover=all
    -fno-omit-frame-pointer)
  target_link_options(kt_warnings INTERFACE -fsanitize=address,undefined)
endif()

add_library(kt_library_flags INTERFACE)
target_link_libraries(kt_library_flags INTERFACE kt_warnings)
target_compile_options(kt_library_flags INTERFACE
  -fvisibility=hidden -fvisibility-inlines-hidden -ffunction-sections -fdata-sections
  -fstack-protector-strong
  $<$<COMPILE_LANGUAGE:CXX>:-fno-exceptions -fno-rtti -fno-threadsafe-statics>)
if(NOT KT_SANITIZE)
  # The trace line (10240 bytes) is the largest thing ever put on the stack.
  target_compile_options(kt_library_flags INTERFACE -Wframe-larger-than=11264)
endif()
# Its own functions are called directly, whatever a program has of the same name.
target_link_options(kt_library_flags INTERFACE
  -Wl,-z,defs -Wl,-Bsymbolic-functions -Wl,-z,relro,-z,now -Wl,-z,noexecstack -Wl,--gc-sections -Wl,--as-needed
  -Wl,--version-script=${PROJECT_SOURCE_DIR}/exports.sym)
