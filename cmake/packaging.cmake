# The Debian package; script/package builds it. Preset "package" links the C++ runtime into the
# programs, so that it depends on the C library alone.
set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_VENDOR "morp")
set(CPACK_PACKAGE_CONTACT "morp maintainers <maintainers@morp.invalid>")
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "${PROJECT_DESCRIPTION}")
set(CPACK_PACKAGE_DESCRIPTION
    "morp runs a program on a terminal of its own. While the program waits for a line, morp edits it,
in the manner of emacs or vi and with a history that is kept in a file; full-screen programs and
password prompts are left alone.")
set(CPACK_STRIP_FILES ON)
# Folders as the policy wants them, whatever the umask.
set(CPACK_INSTALL_DEFAULT_DIRECTORY_PERMISSIONS
    OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE WORLD_READ WORLD_EXECUTE)
set(CPACK_DEBIAN_PACKAGE_SECTION utils)
set(CPACK_DEBIAN_PACKAGE_PRIORITY optional)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
include(CPack)
