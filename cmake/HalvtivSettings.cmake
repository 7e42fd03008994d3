# How every file of the project is compiled.
add_library(halvtiv_warnings INTERFACE)
# How the files of the library's inside are.
add_library(halvtiv_settings INTERFACE)
target_link_libraries(halvtiv_settings INTERFACE halvtiv_warnings)
target_compile_features(halvtiv_settings INTERFACE cxx_std_20)
target_include_directories(halvtiv_settings INTERFACE
    ${PROJECT_SOURCE_DIR}/include ${PROJECT_SOURCE_DIR}/src)
target_compile_definitions(halvtiv_settings INTERFACE HALVTIV_BUILDING)

set(HALVTIV_EXPORTS ${PROJECT_SOURCE_DIR}/cmake/exports.map)
set(CMAKE_CXX_EXTENSIONS OFF)
set(CMAKE_POSITION_INDEPENDENT_CODE ON)
set(CMAKE_CXX_VISIBILITY_PRESET hidden)
set(CMAKE_VISIBILITY_INLINES_HIDDEN ON)

if(MSVC)
    target_compile_options(halvtiv_warnings INTERFACE /W4 /utf-8 $<$<BOOL:${HALVTIV_WARNINGS_AS_ERRORS}>:/WX>)
else()
    target_compile_options(halvtiv_warnings INTERFACE
        -Wall -Wextra -Wpedantic -Wshadow -Wconversion
        $<$<BOOL:${HALVTIV_WARNINGS_AS_ERRORS}>:-Werror>)
endif()

if(HALVTIV_FUZZ)
    add_compile_options(-fsanitize=fuzzer-no-link)
endif()
if(HALVTIV_SANITIZE)
    add_compile_options(-fsanitize=address,undefined -fno-sanitize-recover=all -fno-omit-frame-pointer)
    add_link_options(-fsanitize=address,undefined)
endif()
