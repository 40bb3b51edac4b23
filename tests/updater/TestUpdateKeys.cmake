# Tests the checks that configuring makes of the keys. Each pair is checked by a cmake process of its
# own, because a refusal ends it.

cmake_minimum_required(VERSION 3.25)

if(DEFINED ACTIVE)
    include(${CMAKE_CURRENT_LIST_DIR}/../../cmake/UpdateKeyChecks.cmake)
    veyra_check_update_keys("${ACTIVE}" "${SPARE}")
    return()
endif()

# expect(verdict "active" "spare"): accepted, or the variable that the refusal begins with
function(expect verdict active spare)
    execute_process(
        COMMAND ${CMAKE_COMMAND} -D "ACTIVE:STRING=${active}" -D "SPARE:STRING=${spare}"
                -P ${CMAKE_CURRENT_FUNCTION_LIST_FILE}
        RESULT_VARIABLE result ERROR_VARIABLE message)
    if(result EQUAL 0)
        set(found accepted)
    elseif(message MATCHES "\n *(VEYRA_[A-Z_]*KEY) (is|and)[ \n]")
        set(found ${CMAKE_MATCH_1})
    else()
        set(found "broken: ${message}")
    endif()
    if(NOT found STREQUAL verdict)
        message(SEND_ERROR "\"${active}\" and \"${spare}\" should be ${verdict}, but are ${found}")
    endif()
endfunction()

set(key RWTiWzqIADO4L/bhcx+Wuz13hfSzmiO+2fu7fcvpCCIQsnDinm3USGPT)
string(SUBSTRING ${key} 0 55 short)
set(other "${short}x")

expect(accepted "" "")
expect(accepted ${key} "")
expect(accepted "" ${key})
expect(accepted ${key} ${other})
expect(VEYRA_UPDATE_KEY ${key} ${key})
expect(VEYRA_UPDATE_KEY "${key}A" ${other})
expect(VEYRA_SPARE_UPDATE_KEY ${key} "${other}A")
expect(VEYRA_UPDATE_KEY RW "")
expect(VEYRA_UPDATE_KEY " " "")
expect(VEYRA_UPDATE_KEY "untrusted comment: minisign public key" "")
expect(VEYRA_UPDATE_KEY ${short} "")
expect(VEYRA_UPDATE_KEY "${short}=" "")
expect(VEYRA_UPDATE_KEY "${short}\"" "")
foreach(start RX RWU RWA RWP)
    string(LENGTH ${start} length)
    string(SUBSTRING ${key} ${length} -1 rest)
    expect(VEYRA_UPDATE_KEY ${start}${rest} "")
endforeach()
foreach(start RWQ RWR RWS)
    string(SUBSTRING ${key} 3 -1 rest)
    expect(accepted ${start}${rest} "")
endforeach()
