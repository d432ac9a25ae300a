# Installation and the Debian package: the programs go to bin/, each with its manual page
# (man/<program>.1) in share/man/man1/. `cpack` builds the package; its dependencies are the
# Debian packages of the shared libraries the programs use (DCMTK, OpenJPEG, the C++ runtime),
# found by dpkg-shlibdeps.
include(GNUInstallDirs)

foreach(target applyChanges makeKqR_tool convertPrivateTags_tool objdiff_tool transcode_tool gwav_tool previewChanges_tool)
  if(TARGET ${target})
    install(TARGETS ${target} RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})
    get_target_property(program ${target} OUTPUT_NAME)
    if(NOT program)
      set(program ${target})
    endif()
    list(APPEND KQ_INSTALLED_PAGES ${program})
  endif()
endforeach()
# the archive script, installed as apply-archive
install(PROGRAMS ${PROJECT_SOURCE_DIR}/scripts/apply-archive.sh DESTINATION ${CMAKE_INSTALL_BINDIR}
        RENAME apply-archive)
list(APPEND KQ_INSTALLED_PAGES apply-archive)

# Manual pages and the (native) package's changelog compressed as Debian wants them (gzip -9n: no name,
# no time stamp, so the bytes depend on the text alone); the copyright file beside them.
find_program(GZIP gzip REQUIRED)
set(KQ_GZ_DIR ${PROJECT_BINARY_DIR}/gz)
set(KQ_GZ_FILES)
foreach(page ${KQ_INSTALLED_PAGES})
  if(EXISTS ${PROJECT_SOURCE_DIR}/man/${page}.1)
    add_custom_command(OUTPUT ${KQ_GZ_DIR}/${page}.1.gz
                       COMMAND ${CMAKE_COMMAND} -E make_directory ${KQ_GZ_DIR}
                       COMMAND ${GZIP} -9n -c ${PROJECT_SOURCE_DIR}/man/${page}.1 > ${KQ_GZ_DIR}/${page}.1.gz
                       DEPENDS ${PROJECT_SOURCE_DIR}/man/${page}.1)
    list(APPEND KQ_GZ_FILES ${KQ_GZ_DIR}/${page}.1.gz)
    install(FILES ${KQ_GZ_DIR}/${page}.1.gz DESTINATION ${CMAKE_INSTALL_MANDIR}/man1)
  endif()
endforeach()
add_custom_command(OUTPUT ${KQ_GZ_DIR}/changelog.gz
                   COMMAND ${CMAKE_COMMAND} -E make_directory ${KQ_GZ_DIR}
                   COMMAND ${GZIP} -9n -c ${PROJECT_SOURCE_DIR}/packaging/changelog > ${KQ_GZ_DIR}/changelog.gz
                   DEPENDS ${PROJECT_SOURCE_DIR}/packaging/changelog)
list(APPEND KQ_GZ_FILES ${KQ_GZ_DIR}/changelog.gz)
add_custom_target(kq_compressed_docs ALL DEPENDS ${KQ_GZ_FILES})
install(FILES ${KQ_GZ_DIR}/changelog.gz ${PROJECT_SOURCE_DIR}/packaging/copyright
        DESTINATION ${CMAKE_INSTALL_DATADIR}/doc/kqarchive)

# every manual page formats without a warning of groff
file(GLOB KQ_MAN_PAGES CONFIGURE_DEPENDS ${PROJECT_SOURCE_DIR}/man/*.1)
find_program(GROFF groff)
if(GROFF AND KQ_MAN_PAGES)
  add_test(NAME man_pages
           COMMAND sh -c "out=$(${GROFF} -t -man -ww -z -Tutf8 \"$@\" 2>&1); [ -z \"$out\" ] || { echo \"$out\"; exit 1; }"
                   sh ${KQ_MAN_PAGES})
endif()

set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME kqarchive)
set(CPACK_PACKAGE_VERSION ${PROJECT_VERSION})
set(CPACK_PACKAGE_CONTACT "KQ archive developers <kq-archive@example.org>")
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "DICOM tools of the KQ archive: soft edits, comparison, transcoding")
set(CPACK_PACKAGE_DESCRIPTION
    "applyChanges applies the soft edit changes of a KqR file to stored DICOM
objects, verified and made durable object by object; previewChanges shows
what it would change; makeKqR writes KqR files, objdiff compares objects,
transcode re-encodes pixel data (RLE, JPEG, JPEG-LS, JPEG 2000),
convertPrivateTags moves legacy private elements, gwav codes the wavelet
image dumps and apply-archive runs soft edits over many studies.")
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_STRIP_FILES ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SECTION science)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
# the archive script's engine
set(CPACK_DEBIAN_PACKAGE_DEPENDS "parallel")
# directories owned by root and readable by all, as lintian expects of a package's tree
set(CPACK_INSTALL_DEFAULT_DIRECTORY_PERMISSIONS OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE
                                                WORLD_READ WORLD_EXECUTE)
include(CPack)
