# Runs within CPack when the files of the Debian package lie ready, and gives them the names and
# forms that Debian's policy and tools want: the licence as "copyright", two changelogs and the manual
# pages compressed, and zsh's completion where Debian's zsh looks for what packages bring.
set(share ${CPACK_TEMPORARY_DIRECTORY}/usr/share)
set(doc ${share}/doc/${CPACK_PACKAGE_NAME})

file(RENAME ${doc}/LICENSE ${doc}/copyright)
file(RENAME ${doc}/CHANGELOG.md ${doc}/changelog)
file(RENAME ${share}/zsh/site-functions ${share}/zsh/vendor-completions)
# SOURCE_DATE_EPOCH, when set, takes the place of the time.
string(TIMESTAMP date "%a, %d %b %Y %H:%M:%S +0000" UTC)
set(version ${CPACK_PACKAGE_VERSION}-${CPACK_DEBIAN_PACKAGE_RELEASE})
file(WRITE ${doc}/changelog.Debian
    "${CPACK_PACKAGE_NAME} (${version}) unstable; urgency=medium\n\n"
    "  * What has changed is in changelog.gz.\n\n"
    " -- ${CPACK_PACKAGE_CONTACT}  ${date}\n")
# The package is not made for Debian's own archive, so it closes no request there.
file(WRITE ${share}/lintian/overrides/${CPACK_PACKAGE_NAME}
    "${CPACK_PACKAGE_NAME}: initial-upload-closes-no-bugs\n")
file(GLOB pages ${share}/man/man1/*.1)
execute_process(
    COMMAND gzip -9n ${doc}/changelog ${doc}/changelog.Debian ${pages}
    COMMAND_ERROR_IS_FATAL ANY)
# No file is younger than what the package says of its time.
if(DEFINED ENV{SOURCE_DATE_EPOCH})
    execute_process(
        COMMAND find ${CPACK_TEMPORARY_DIRECTORY} -exec touch -h -d @$ENV{SOURCE_DATE_EPOCH} {} +
        COMMAND_ERROR_IS_FATAL ANY)
endif()
