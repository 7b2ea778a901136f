# Warnings and Qt's strictness macros, shared by every target of the project.
add_library(launcher_compile_settings INTERFACE)

target_compile_definitions(launcher_compile_settings INTERFACE
    QT_NO_CAST_TO_ASCII
    QT_NO_CAST_FROM_BYTEARRAY
    QT_NO_NARROWING_CONVERSIONS_IN_CONNECT
    QT_NO_URL_CAST_FROM_STRING
    QT_NO_CONTEXTLESS_CONNECT
    QT_USE_QSTRINGBUILDER
    QT_STRICT_ITERATORS
    QT_NO_FOREACH
)

if(MSVC)
    target_compile_options(launcher_compile_settings INTERFACE /W4 /permissive- /utf-8)
else()
    target_compile_options(launcher_compile_settings INTERFACE
        -Wall -Wextra -Wpedantic -Wshadow -Wnon-virtual-dtor)
endif()
