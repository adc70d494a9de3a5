# Installs the build into a scratch prefix and checks that a desktop finds everything there:
# programs that run, the desktop entry (valid as installed), icons, metainfo, man page, licence.
set(root "${BUILD_DIR}/packaging/install-check")
file(REMOVE_RECURSE "${root}")
execute_process(COMMAND "${CMAKE_COMMAND}" --install "${BUILD_DIR}" --prefix "${root}"
    RESULT_VARIABLE result OUTPUT_QUIET ERROR_VARIABLE error)
if(NOT result EQUAL 0)
    message(FATAL_ERROR "cmake --install failed: ${error}")
endif()

set(wanted
    bin/quorval-cli
    share/applications/${APP_ID}.desktop
    share/metainfo/${APP_ID}.metainfo.xml
    share/icons/hicolor/scalable/apps/${APP_ID}.svg
    share/icons/hicolor/48x48/apps/${APP_ID}.png
    share/icons/hicolor/256x256/apps/${APP_ID}.png
    share/man/man1/quorval-cli.1.gz
    share/man/man1/quorval.1.gz
    share/doc/quorval/copyright
    share/doc/quorval/changelog.Debian.gz
    share/doc/quorval/screenshots/trace.png
    share/quorval/demo.wav
    share/quorval/demo.plist)
if(WITH_WINDOW)
    list(APPEND wanted bin/quorval)
endif()
set(missing "")
foreach(file IN LISTS wanted)
    if(NOT EXISTS "${root}/${file}")
        list(APPEND missing "${file}")
    endif()
endforeach()
if(missing)
    message(FATAL_ERROR "not installed: ${missing}")
endif()

# A PNG's size sits in its header: the 48 px icon must be 48 px.
file(READ "${root}/share/icons/hicolor/48x48/apps/${APP_ID}.png" header LIMIT 24 HEX)
string(SUBSTRING "${header}" 32 16 size)
if(NOT size STREQUAL "0000003000000030")
    message(FATAL_ERROR "the 48x48 icon is not 48 by 48 pixels (${size})")
endif()

# The installed program runs on its own, away from the build tree.
execute_process(COMMAND "${root}/bin/quorval-cli" info "${root}/share/quorval/demo.wav"
    RESULT_VARIABLE result OUTPUT_VARIABLE output ERROR_VARIABLE error)
if(NOT result EQUAL 0 OR output STREQUAL "")
    message(FATAL_ERROR "the installed quorval-cli failed (${result}): ${error}")
endif()

if(DESKTOP_FILE_VALIDATE)
    execute_process(COMMAND "${DESKTOP_FILE_VALIDATE}"
        "${root}/share/applications/${APP_ID}.desktop" RESULT_VARIABLE result
        OUTPUT_VARIABLE output ERROR_VARIABLE output)
    if(NOT result EQUAL 0)
        message(FATAL_ERROR "installed desktop entry refused: ${output}")
    endif()
endif()
