# Installing velloro with the plug-in and the stand-in's library, and the
# Debian package of them. The layout is the build tree's: bin/velloro finds
# lib/libvelloro_avi.so beside its own bin/, and both find lib/libvlhost.so
# through their run paths wherever the prefix is.
set_target_properties(velloro PROPERTIES INSTALL_RPATH "$ORIGIN/../lib")
set_target_properties(velloro_avi vlhost PROPERTIES INSTALL_RPATH "$ORIGIN")
install(TARGETS velloro RUNTIME DESTINATION bin)
install(TARGETS velloro_avi vlhost LIBRARY DESTINATION lib)

set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME velloro)
set(CPACK_PACKAGE_VERSION ${PROJECT_VERSION})
set(CPACK_PACKAGE_CONTACT "Velloro AVI team <avi@velloro.invalid>")
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "AVI plug-in of the Velloro editor, with the editor stand-in's command line")
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SECTION video)
# The libraries it needs (libuuid, libmd, libstdc++) from what it links.
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS ${CMAKE_LIBRARY_OUTPUT_DIRECTORY})
include(CPack)
