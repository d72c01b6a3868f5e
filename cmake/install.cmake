# The installation root: bin, lib, include, data/pf, share/man. A program in its
# bin finds the root from its own path, so the tree may be moved as a whole.

include(CMakePackageConfigHelpers)
set(stock_cmake_dir lib/cmake/stock)

install(TARGETS stock_shared stock_static EXPORT stock
  LIBRARY DESTINATION lib ARCHIVE DESTINATION lib)
install(TARGETS stock_tool RUNTIME DESTINATION bin)
install(DIRECTORY include/ DESTINATION include FILES_MATCHING PATTERN "*.h")
install(DIRECTORY data/pf/ DESTINATION data/pf FILES_MATCHING PATTERN "*.pf")
include(cmake/manual.cmake)

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
