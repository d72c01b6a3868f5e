# Run by cpack when the files of each package lie ready: adds the links and the few files
# by which the system finds what is below the root of the suite.

set(root ${CPACK_PACKAGING_INSTALL_PREFIX})

# link_all(COMPONENT PATTERN [DIRECTORY]): to each file below the root that matches, a
# link at the same place below usr, or in that directory there.
function(link_all component pattern)
  set(stage ${CPACK_TEMPORARY_DIRECTORY}/${component})
  file(GLOB files RELATIVE ${stage}${root} ${stage}${root}/${pattern})
  if(NOT files)
    message(FATAL_ERROR "package ${component}: there is no ${pattern}")
  endif()
  foreach(file IN LISTS files)
    get_filename_component(name ${file} NAME)
    get_filename_component(directory ${file} DIRECTORY)
    if(ARGC GREATER 2)
      set(directory ${ARGV2})
    endif()
    set(directory ${stage}/usr/${directory})
    file(MAKE_DIRECTORY ${directory})
    file(RELATIVE_PATH target ${directory} ${stage}${root}/${file})
    file(CREATE_LINK ${target} ${directory}/${name} SYMBOLIC)
  endforeach()
endfunction()

link_all(tool "bin/*")
link_all(tool "share/man/man1/*")
link_all(tool "share/bash-completion/completions/*")
link_all(tool "share/zsh/site-functions/*" share/zsh/vendor-completions)
link_all(tool "share/vim/vimfiles/*/stockpf.vim")
link_all(documents "share/man/man*/*")
file(MAKE_DIRECTORY ${CPACK_TEMPORARY_DIRECTORY}/documents/usr/share/doc)
file(CREATE_LINK ../../..${root}/share/doc/stock
  ${CPACK_TEMPORARY_DIRECTORY}/documents/usr/share/doc/stock-doc SYMBOLIC)

file(WRITE ${CPACK_TEMPORARY_DIRECTORY}/runtime/etc/ld.so.conf.d/${CPACK_DEBIAN_RUNTIME_PACKAGE_NAME}.conf
  "${root}/lib\n")

# These find the rest of their tree from their own place, which a link would hide.
set(development ${CPACK_TEMPORARY_DIRECTORY}/development)
file(READ ${development}${root}/lib/pkgconfig/stock.pc text)
string(REGEX REPLACE "^prefix=[^\n]*" "prefix=${root}" text "${text}")
file(WRITE ${development}/usr/share/pkgconfig/stock.pc "${text}")
foreach(file stockConfig.cmake stockConfigVersion.cmake)
  file(WRITE ${development}/usr/share/cmake/stock/${file}
    "include(\"\${CMAKE_CURRENT_LIST_DIR}/../../../..${root}/lib/cmake/stock/${file}\")\n")
endforeach()
