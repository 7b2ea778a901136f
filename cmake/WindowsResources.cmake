# Gives a Windows program the launcher's version record, icon and manifest.
#
# The manifest goes in by exactly one way per toolchain. MSVC's linker embeds
# a listed .manifest itself, merged with what it generates, and fails on a
# duplicate resource if the .rc carries it as well; GNU linkers ignore
# .manifest sources, so for them the .rc carries it.
function(launcher_add_windows_resources target rc manifest)
    target_sources(${target} PRIVATE "${rc}")
    if(MSVC)
        target_sources(${target} PRIVATE "${manifest}")
        set_property(SOURCE "${rc}" TARGET_DIRECTORY ${target}
            APPEND PROPERTY COMPILE_DEFINITIONS LAUNCHER_MANIFEST_BY_LINKER)
    else()
        set_property(SOURCE "${rc}" TARGET_DIRECTORY ${target}
            APPEND PROPERTY OBJECT_DEPENDS "${manifest}")
    endif()
endfunction()
