# What "cpack" makes for Windows: an archive that works wherever it is unpacked, with the compiler's run-time libraries.
set(CPACK_PACKAGE_NAME zbase)
set(CPACK_PACKAGE_VENDOR "The ZBase developers")
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "${PROJECT_DESCRIPTION}")
set(CPACK_VERBATIM_VARIABLES ON)
set(CPACK_STRIP_FILES OFF)  # names and lines stay
set(CPACK_GENERATOR ZIP)
set(CPACK_PACKAGE_FILE_NAME "zbase-${PROJECT_VERSION}-Windows-${CMAKE_SYSTEM_PROCESSOR}")
include(CPack)
