# How the window looks and is reached without a mouse.
veyra_add_test(test_window_face
    SOURCES TestWindowFace.cpp $<TARGET_OBJECTS:veyra_resources>
    LIBRARIES veyra_app)
target_compile_definitions(test_window_face PRIVATE
    VEYRA_REFERENCE_FOLDER="${CMAKE_CURRENT_SOURCE_DIR}/reference")
veyra_add_test(test_keyboard_access
    SOURCES TestKeyboardAccess.cpp $<TARGET_OBJECTS:veyra_resources>
    LIBRARIES veyra_app)
veyra_add_test(test_server_nonsense SOURCES TestServerNonsense.cpp LIBRARIES veyra_app)

# The scaling of a process is fixed when it starts.
veyra_add_test(test_window_fits
    SOURCES TestWindowFits.cpp $<TARGET_OBJECTS:veyra_resources>
    LIBRARIES veyra_app)
set_property(TEST test_window_fits APPEND PROPERTY ENVIRONMENT "QT_SCALE_FACTOR=1")
foreach(percent 125 150 200)
    add_test(NAME test_window_fits_at_${percent}_percent COMMAND test_window_fits)
    string(REGEX REPLACE "(..)$" ".\\1" factor ${percent})
    get_test_property(test_window_fits ENVIRONMENT environment)
    list(FILTER environment EXCLUDE REGEX "QT_SCALE_FACTOR")
    set_tests_properties(test_window_fits_at_${percent}_percent PROPERTIES
        ENVIRONMENT "${environment};QT_SCALE_FACTOR=${factor}")
endforeach()

# Takes pictures of the window in every state; run by scripts/screenshots.
qt_add_executable(take_screenshots tools/Screenshots.cpp
    $<TARGET_OBJECTS:veyra_resources> $<TARGET_OBJECTS:veyra_test_settings>)
target_link_libraries(take_screenshots PRIVATE veyra_app veyra_test_support)
