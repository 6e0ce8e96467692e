# OrvaneMcp::orvane_mcp, the library of this package, for GNU's linkers and for Microsoft's.
if(NOT CMAKE_SIZEOF_VOID_P EQUAL 8)
  set(OrvaneMcp_FOUND FALSE)
  set(OrvaneMcp_NOT_FOUND_MESSAGE "This package is for 64-bit programs.")
  return()
endif()
get_filename_component(orvane_mcp_root "${CMAKE_CURRENT_LIST_DIR}/../../.." ABSOLUTE)
if(MSVC)
  set(orvane_mcp_import orvane_mcp.lib)
else()
  set(orvane_mcp_import liborvane_mcp.dll.a)
endif()
if(NOT TARGET OrvaneMcp::orvane_mcp)
  add_library(OrvaneMcp::orvane_mcp SHARED IMPORTED)
  set_target_properties(OrvaneMcp::orvane_mcp PROPERTIES
    IMPORTED_LOCATION "${orvane_mcp_root}/bin/orvane_mcp.dll"
    IMPORTED_IMPLIB "${orvane_mcp_root}/lib/${orvane_mcp_import}"
    INTERFACE_INCLUDE_DIRECTORIES "${orvane_mcp_root}/include")
endif()
