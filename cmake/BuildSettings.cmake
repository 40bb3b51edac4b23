# What is fixed when the launcher is built, as an object library. An executable links exactly one of
# these: without one it does not link, and with two neither, so nothing is ever settled by the order
# of the libraries.
#   veyra_add_build_settings(name VERSION version SERVER_URL url DISCORD_URL url)
function(veyra_add_build_settings name)
    cmake_parse_arguments(PARSE_ARGV 1 settings "" "VERSION;SERVER_URL;DISCORD_URL" "")
    add_library(${name} OBJECT
        ${PROJECT_SOURCE_DIR}/config/BuildSettings.cpp
        ${PROJECT_SOURCE_DIR}/config/BuildSettings.h)
    target_link_libraries(${name} PRIVATE veyra_settings Qt6::Core)
    target_compile_definitions(${name} PRIVATE
        VEYRA_VERSION="${settings_VERSION}"
        VEYRA_SERVER_URL="${settings_SERVER_URL}"
        VEYRA_DISCORD_URL="${settings_DISCORD_URL}")
endfunction()
