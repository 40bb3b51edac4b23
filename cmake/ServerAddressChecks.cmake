# Every request path is appended to the base URL as it stands, so a wrong base would only show at
# run time, as a launcher that is always offline. Configuring refuses it instead.

function(veyra_check_server_url url)
    set(host "([A-Za-z0-9]([A-Za-z0-9.-]*[A-Za-z0-9])?|\\[[0-9A-Fa-f:.]+\\])")
    if(NOT url MATCHES "^http://${host}(:[0-9]+)?/$")
        message(FATAL_ERROR
            "VEYRA_SERVER_URL is \"${url}\". It must be http://, a host (with a port if needed) and "
            "a trailing slash, for example -DVEYRA_SERVER_URL=http://play.example.org/")
    endif()
endfunction()

function(veyra_check_discord_url url)
    if(NOT url MATCHES "^https?://[^/ \"]+[^ \"]*$")
        message(FATAL_ERROR
            "VEYRA_DISCORD_URL is \"${url}\". It must be a web address, for example "
            "-DVEYRA_DISCORD_URL=https://discord.gg/invite")
    endif()
endfunction()
