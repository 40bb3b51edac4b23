# Every request path is appended to the base URL as it stands, so a wrong base would only show at
# run time, as a launcher that is always offline. Configuring refuses it instead.

function(veyra_check_server_url url)
    set(label "[A-Za-z0-9]([A-Za-z0-9-]*[A-Za-z0-9])?")
    set(host "(${label}(\\.${label})*|\\[[0-9A-Fa-f:.]+\\])")
    set(port 80)
    if(url MATCHES "^https?://${host}:([0-9]+)/$")
        set(port ${CMAKE_MATCH_5})
    endif()
    if(NOT url MATCHES "^https?://${host}(:[0-9]+)?/$" OR port LESS 1 OR port GREATER 65535)
        message(FATAL_ERROR
            "VEYRA_SERVER_URL is \"${url}\". It must be http:// or https://, a host (with a port "
            "if needed) and a trailing slash, for example -DVEYRA_SERVER_URL=http://play.example.org/")
    endif()
endfunction()

function(veyra_check_discord_url url)
    # What follows a semicolon would get lost: it separates the items of CMake's lists.
    if(NOT url MATCHES "^https?://[^/ \";]+[^ \";]*$")
        message(FATAL_ERROR
            "VEYRA_DISCORD_URL is \"${url}\". It must be a web address without \";\", for example "
            "-DVEYRA_DISCORD_URL=https://discord.gg/invite")
    endif()
endfunction()
