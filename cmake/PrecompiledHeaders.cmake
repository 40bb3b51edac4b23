# Qt's headers are most of what the compiler reads. Read once and kept, they spare a third to a half
# of a build's time. Not by default, and never for scripts/lint: there each file has to name what it
# uses.
option(VEYRA_PRECOMPILED_HEADERS "Read Qt's headers once for many files" OFF)

# veyra_precompile_headers(target header...): for the target, and for those that share with it.
function(veyra_precompile_headers target)
    if(VEYRA_PRECOMPILED_HEADERS)
        target_precompile_headers(${target} PRIVATE ${ARGN})
    endif()
endfunction()

# veyra_share_precompiled_headers(target owner): what the owner is compiled with has to suit both.
function(veyra_share_precompiled_headers target owner)
    if(VEYRA_PRECOMPILED_HEADERS)
        target_precompile_headers(${target} REUSE_FROM ${owner})
    endif()
endfunction()
