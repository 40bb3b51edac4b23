# Looks into what rcc has made of the resource list: nothing tells the format at run time.
#   cmake -DSOURCES=file;... -P TestResourceFormat.cmake

set(registrations "")
foreach(file IN LISTS SOURCES)
    if(file MATCHES "\\.cpp$" AND EXISTS ${file})
        file(STRINGS ${file} lines REGEX "int version = ")
        list(APPEND registrations ${lines})
    endif()
endforeach()
list(TRANSFORM registrations STRIP)
list(REMOVE_DUPLICATES registrations)
if(NOT registrations STREQUAL "int version = 3")
    message(FATAL_ERROR "The pictures are to be registered in format 3, but: ${registrations}")
endif()
