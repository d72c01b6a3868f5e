# The installation root: bin, lib, include, data/pf, share. A program in its
# bin finds the root from its own path, so the tree may be moved as a whole.
#
# Each file belongs to one of four components, of which package.cmake makes packages.

include(CMakePackageConfigHelpers)
set(stock_cmake_dir lib/cmake/stock)

set(CMAKE_INSTALL_DEFAULT_COMPONENT_NAME runtime)
install(TARGETS stock_shared stock_static EXPORT stock
  LIBRARY DESTINATION lib NAMELINK_COMPONENT development
  ARCHIVE DESTINATION lib COMPONENT development)
install(DIRECTORY data/pf/ DESTINATION data/pf FILES_MATCHING PATTERN "*.pf")

set(CMAKE_INSTALL_DEFAULT_COMPONENT_NAME tool)
install(TARGETS stock_tool RUNTIME DESTINATION bin)
install(FILES completion/stock.bash DESTINATION share/bash-completion/completions RENAME stock)
install(DIRECTORY editors/vim/ DESTINATION share/vim/vimfiles)
install(DIRECTORY editors/vscode DESTINATION share/stock)
install(FILES completion/_stock DESTINATION share/zsh/site-functions)

set(CMAKE_INSTALL_DEFAULT_COMPONENT_NAME documents)
include(cmake/manual.cmake)
install(DIRECTORY docs/ DESTINATION share/doc/stock)
install(FILES README.md CHANGELOG.md DESTINATION share/doc/stock)
install(DIRECTORY examples DESTINATION share/doc/stock)

set(CMAKE_INSTALL_DEFAULT_COMPONENT_NAME development)
install(DIRECTORY include/ DESTINATION include
  FILES_MATCHING PATTERN "*.h" PATTERN "*.hpp")
install(EXPORT stock NAMESPACE stock:: DESTINATION ${stock_cmake_dir} FILE stockTargets.cmake)
configure_package_config_file(cmake/stockConfig.cmake.in stockConfig.cmake
  INSTALL_DESTINATION ${stock_cmake_dir} NO_SET_AND_CHECK_MACRO)
write_basic_package_version_file(stockConfigVersion.cmake COMPATIBILITY SameMajorVersion)
configure_file(cmake/stock.pc.in stock.pc @ONLY)
install(FILES
  ${CMAKE_CURRENT_BINARY_DIR}/stockConfig.cmake
  ${CMAKE_CURRENT_BINARY_DIR}/stockConfigVersion.cmake
  DESTINATION ${stock_cmake_dir})
install(FILES ${CMAKE_CURRENT_BINARY_DIR}/stock.pc DESTINATION lib/pkgconfig)

unset(CMAKE_INSTALL_DEFAULT_COMPONENT_NAME)
