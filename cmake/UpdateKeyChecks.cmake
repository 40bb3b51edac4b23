# The keys that launcher updates are checked with are compiled in. One that cannot be read would only
# show at run time, as an updater that refuses every archive. Configuring refuses it instead.

# Empty, or what stands on the second line of a public key file of minisign: 42 bytes in base64, which
# is 56 characters without padding. The first two bytes name the algorithm: "Ed", which is "RW" and
# the upper four bits of the third character.
function(veyra_check_update_key variable key)
    if(NOT key MATCHES "^(RW[QRST][A-Za-z0-9+/]*)?$")
        set(problem TRUE)
    else()
        string(LENGTH "${key}" length)
        if(NOT length EQUAL 0 AND NOT length EQUAL 56)
            set(problem TRUE)
        endif()
    endif()
    if(problem)
        message(FATAL_ERROR
            "${variable} is \"${key}\". It must be empty or the second line of a public key file of "
            "minisign: 56 characters of base64 that begin with RWQ, RWR, RWS or RWT")
    endif()
endfunction()

function(veyra_check_update_keys active spare)
    veyra_check_update_key(VEYRA_UPDATE_KEY "${active}")
    veyra_check_update_key(VEYRA_SPARE_UPDATE_KEY "${spare}")
    if(active AND active STREQUAL spare)
        message(FATAL_ERROR
            "VEYRA_UPDATE_KEY and VEYRA_SPARE_UPDATE_KEY are the same key. A spare key is one that is "
            "kept elsewhere, for the day when the active one is lost")
    endif()
endfunction()
