# What every target of this project is compiled with. Targets link veyra_settings.

add_library(veyra_settings INTERFACE)
target_include_directories(veyra_settings INTERFACE ${PROJECT_SOURCE_DIR})
target_compile_definitions(veyra_settings INTERFACE
    QT_NO_CAST_FROM_ASCII
    QT_NO_CAST_TO_ASCII
    QT_NO_CAST_FROM_BYTEARRAY
    QT_NO_URL_CAST_FROM_STRING
    QT_NO_NARROWING_CONVERSIONS_IN_CONNECT
    QT_NO_FOREACH
    QT_NO_JAVA_STYLE_ITERATORS
    QT_STRICT_ITERATORS
    QT_DISABLE_DEPRECATED_BEFORE=0x060400)

if(MSVC)
    target_compile_options(veyra_settings INTERFACE /W4 /permissive- /utf-8)
else()
    target_compile_options(veyra_settings INTERFACE
        -Wall -Wextra -Wpedantic -Wshadow -Wconversion -Wnon-virtual-dtor -Woverloaded-virtual
        -Wnull-dereference -Wformat=2)
endif()

if(MINGW)
    # What players get is the same, byte for byte, wherever it was built.
    target_compile_options(veyra_settings INTERFACE -ffile-prefix-map=${PROJECT_SOURCE_DIR}=.)
    target_link_options(veyra_settings INTERFACE -Wl,--no-insert-timestamp)
endif()

# What measures its own time has to know.
if(VEYRA_SANITIZE OR VEYRA_COVERAGE)
    target_compile_definitions(veyra_settings INTERFACE VEYRA_INSTRUMENTED)
endif()

if(VEYRA_SANITIZE)
    target_compile_options(veyra_settings INTERFACE
        -fsanitize=${VEYRA_SANITIZE} -fno-sanitize-recover=all -fno-omit-frame-pointer)
    target_link_options(veyra_settings INTERFACE -fsanitize=${VEYRA_SANITIZE})
endif()

if(VEYRA_COVERAGE)
    # What a debugger wants to know is not needed, and takes half of the time.
    target_compile_options(veyra_settings INTERFACE --coverage -fprofile-update=atomic -g0)
    target_link_options(veyra_settings INTERFACE --coverage)
endif()
