# Where things are installed, under the prefix.
if(PROJECT_IS_TOP_LEVEL AND EXISTS /etc/debian_version AND CMAKE_LIBRARY_ARCHITECTURE
   AND NOT CMAKE_CROSSCOMPILING AND NOT DEFINED CMAKE_INSTALL_LIBDIR)
  # Debian's folder under every prefix, not only under /usr: any build folder can be packaged. (A folder
  # from the command line would become one below the current directory here.)
  set(CMAKE_INSTALL_LIBDIR lib/${CMAKE_LIBRARY_ARCHITECTURE} CACHE PATH "Folder of libraries")
endif()
include(GNUInstallDirs)

# The virtual library has the same name as the real one, so it is in a folder that no loader searches.
set(qz_virtual_bindir ${CMAKE_INSTALL_BINDIR}/virtual)  # of DLLs
if(WIN32)
  set(qz_virtual_libdir ${CMAKE_INSTALL_LIBDIR}/virtual)
else()
  set(qz_virtual_libdir ${CMAKE_INSTALL_LIBDIR}/qzhidapi/virtual)
endif()
