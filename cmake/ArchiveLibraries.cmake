# libsodium, libzip and zlib, by hand: libzip's own package for CMake asks for its command line tools
# as well.
set(places)
set(VEYRA_UPDATER_LIBRARIES "" CACHE PATH
    "On Windows: the folder of static libsodium, libzip and zlib, with include and lib")
if(WIN32)
    set(places PATHS ${VEYRA_UPDATER_LIBRARIES}/include ${VEYRA_UPDATER_LIBRARIES}/lib
        NO_DEFAULT_PATH NO_CMAKE_FIND_ROOT_PATH)
endif()
find_path(SODIUM_INCLUDE_DIR sodium.h REQUIRED ${places})
find_library(SODIUM_LIBRARY sodium REQUIRED ${places})
find_path(LIBZIP_INCLUDE_DIR zip.h REQUIRED ${places})
find_library(LIBZIP_LIBRARY zip REQUIRED ${places})
# Its header lies where the compiler looks by itself: MinGW's package has it on Windows.
find_library(ZLIB_LIBRARY z REQUIRED ${places})
unset(places)
