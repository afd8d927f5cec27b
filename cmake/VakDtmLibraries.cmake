# The libraries that VakDtm's own links: 2D drawing and text, TIFF with its georeferencing, geodesy. The installed package
# reads this file too, as a static library leaves it to its user to link what it calls.
find_package(PkgConfig REQUIRED)
pkg_check_modules(VAKDTM_CAIRO REQUIRED IMPORTED_TARGET cairo>=1.16 pangocairo>=1.50)
pkg_check_modules(VAKDTM_PROJ REQUIRED IMPORTED_TARGET proj>=9)
find_package(TIFF 4.5 REQUIRED)

# libgeotiff comes without a description of its own.
find_path(VAKDTM_GEOTIFF_INCLUDE xtiffio.h PATH_SUFFIXES geotiff libgeotiff)
find_library(VAKDTM_GEOTIFF_LIBRARY geotiff)
mark_as_advanced(VAKDTM_GEOTIFF_INCLUDE VAKDTM_GEOTIFF_LIBRARY)
if(NOT VAKDTM_GEOTIFF_INCLUDE OR NOT VAKDTM_GEOTIFF_LIBRARY)
  message(FATAL_ERROR "libgeotiff is missing (libgeotiff-dev has it)")
endif()
if(NOT TARGET VakDtm::geotiff)
  add_library(VakDtm::geotiff UNKNOWN IMPORTED)
  set_target_properties(VakDtm::geotiff PROPERTIES IMPORTED_LOCATION ${VAKDTM_GEOTIFF_LIBRARY}
    INTERFACE_INCLUDE_DIRECTORIES ${VAKDTM_GEOTIFF_INCLUDE} INTERFACE_LINK_LIBRARIES TIFF::TIFF)
endif()
