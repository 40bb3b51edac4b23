# Tests what "cmake --install" brings to the operator's machine, and that players get none of it.
#   cmake -DBUILD=folder -DTARGET=folder -P TestPublisherInstall.cmake

cmake_minimum_required(VERSION 3.25)

# Fills `variable` with the files of an installation with these options, sorted.
function(installed variable)
    file(REMOVE_RECURSE ${TARGET})
    execute_process(
        COMMAND ${CMAKE_COMMAND} --install ${BUILD} --prefix ${TARGET} ${ARGN}
        COMMAND_ERROR_IS_FATAL ANY OUTPUT_QUIET)
    file(GLOB_RECURSE files RELATIVE ${TARGET} ${TARGET}/*)
    list(SORT files)
    set(${variable} "${files}" PARENT_SCOPE)
endfunction()

installed(publisher --component publisher)
set(expected
    bin/veyra-publier lib/systemd/system/veyra-etat.service lib/systemd/system/veyra-etat.timer)
if(NOT publisher STREQUAL expected)
    message(SEND_ERROR "Installed are \"${publisher}\", not \"${expected}\"")
endif()
execute_process(COMMAND ${TARGET}/bin/veyra-publier --version
    RESULT_VARIABLE result OUTPUT_QUIET)
if(NOT result EQUAL 0)
    message(SEND_ERROR "The installed program does not start: ${result}")
endif()
# The unit starts what an installation below the usual prefix brings.
file(STRINGS ${TARGET}/lib/systemd/system/veyra-etat.service starts REGEX "^ExecStart=")
if(NOT starts MATCHES "^ExecStart=/usr/local/bin/veyra-publier ")
    message(SEND_ERROR "The unit has \"${starts}\"")
endif()

installed(launcher)
if(launcher MATCHES "veyra-(publier|etat)" OR NOT launcher MATCHES "bin/")
    message(SEND_ERROR "Players get \"${launcher}\"")
endif()
file(REMOVE_RECURSE ${TARGET})
