# Refuses addresses that cannot work, before anything is built for them:
#   cmake -DVEYRA_SERVER_URL=... -DVEYRA_DISCORD_URL=... -P cmake/CheckAddresses.cmake
include(${CMAKE_CURRENT_LIST_DIR}/ServerAddressChecks.cmake)
veyra_check_server_url("${VEYRA_SERVER_URL}")
veyra_check_discord_url("${VEYRA_DISCORD_URL}")
