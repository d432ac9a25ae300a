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
    if(EXISTS ${PROJECT_SOURCE_DIR}/man/${program}.1)
      install(FILES ${PROJECT_SOURCE_DIR}/man/${program}.1 DESTINATION ${CMAKE_INSTALL_MANDIR}/man1)
    endif()
  endif()
endforeach()

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
set(CPACK_PACKAGE_CONTACT "KQ archive developers <kq-archive@localhost>")
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "DICOM tools of the KQ archive: soft edits, comparison, transcoding")
set(CPACK_PACKAGE_DESCRIPTION
    "applyChanges applies the soft edit changes of a KqR file to stored DICOM objects, verified and
made durable object by object; makeKqR writes KqR files, objdiff compares objects, transcode
re-encodes pixel data (RLE, JPEG, JPEG-LS, JPEG 2000), convertPrivateTags moves legacy
private elements and gwav codes the wavelet image dumps.")
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_STRIP_FILES ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SECTION science)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
include(CPack)
