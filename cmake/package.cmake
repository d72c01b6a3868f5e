# Debian packages by CPack: libstock5, libstock-dev, stock and stock-doc, one for each
# component of install.cmake.
#
# What they hold lies below the root where the library looks for its data when nothing
# says otherwise. package_links.cmake adds to each what the system must know of it.

set(stock_runtime libstock${PROJECT_VERSION_MAJOR})
set(CPACK_PACKAGE_NAME stock)
set(CPACK_PACKAGE_VENDOR "stock maintainers")
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "")  # each package has its own
set(CPACK_PACKAGE_CONTACT "stock maintainers <maintainers@localhost>")
set(CPACK_PACKAGING_INSTALL_PREFIX /opt/taluvine/5.3)
set(CPACK_STRIP_FILES ON)
set(CPACK_VERBATIM_VARIABLES ON)
set(CPACK_GENERATOR DEB)
set(CPACK_COMPONENTS_ALL runtime development tool documents)
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_PRE_BUILD_SCRIPTS ${PROJECT_SOURCE_DIR}/cmake/package_links.cmake)

set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_RELEASE 1)
set(CPACK_DEBIAN_PACKAGE_PRIORITY optional)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS ${PROJECT_BINARY_DIR})
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)
set(this_version ${PROJECT_VERSION}-${CPACK_DEBIAN_PACKAGE_RELEASE})

# stock_package(COMPONENT NAME SECTION DESCRIPTION [VARIABLE VALUE]...): further
# variables are those of CPack's generator, without CPACK_DEBIAN_COMPONENT_ in front.
function(stock_package component name section description)
  string(TOUPPER ${component} upper)
  set(settings DESCRIPTION "${description}" PACKAGE_NAME ${name} PACKAGE_SECTION ${section} ${ARGN})
  while(settings)
    list(POP_FRONT settings variable value)
    set(CPACK_DEBIAN_${upper}_${variable} "${value}" PARENT_SCOPE)
  endwhile()
endfunction()

set(control ${PROJECT_BINARY_DIR}/control)
file(WRITE ${control}/triggers "activate-noawait ldconfig\n")
file(GLOB settings CONFIGURE_DEPENDS RELATIVE ${PROJECT_SOURCE_DIR} data/pf/*.pf)
list(TRANSFORM settings PREPEND ${CPACK_PACKAGING_INSTALL_PREFIX}/)
list(APPEND settings /etc/ld.so.conf.d/${stock_runtime}.conf)
list(JOIN settings "\n" conffiles)
file(WRITE ${control}/conffiles "${conffiles}\n")
file(WRITE ${control}/shlibs
  "libstock ${PROJECT_VERSION_MAJOR} ${stock_runtime} (>= ${PROJECT_VERSION})\n")

stock_package(runtime ${stock_runtime} libs
  "support library for data-processing programs
One error log, parameter files, ordered lists and associative arrays, times,
paths and data search, and byte-order conversion. This is the shared library
and its settings."
  PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_RUNTIME_PACKAGE_CONTROL_EXTRA
  ${control}/triggers ${control}/conffiles ${control}/shlibs)
stock_package(development libstock-dev libdevel
  "support library for data-processing programs (development)
The headers, the static library and what pkg-config and CMake want to know."
  PACKAGE_DEPENDS "${stock_runtime} (= ${this_version}), libc6-dev"
  PACKAGE_SUGGESTS stock-doc)
stock_package(tool stock utils
  "parameter files, times and data files on the command line
The tool of the library libstock: prints, checks and changes parameter files,
reads times in any form, finds data files, dumps and converts packed numbers."
  PACKAGE_SHLIBDEPS ON
  PACKAGE_DEPENDS "${stock_runtime} (>= ${PROJECT_VERSION})"
  PACKAGE_SUGGESTS stock-doc)
stock_package(documents stock-doc doc
  "support library for data-processing programs (documents)
The manual pages of the library and of its files, how it is built, and examples."
  PACKAGE_ARCHITECTURE all)

include(CPack)
