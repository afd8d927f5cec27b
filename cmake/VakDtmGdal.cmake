# GDAL, or the option off where it isn't: the command then writes lines as GeoJSON alone, and names what is missing.
find_package(GDAL 3.5 QUIET)
if(NOT GDAL_FOUND)
  message(STATUS "VAKDTM_WITH_GDAL is off: GDAL is missing (libgdal-dev has it)")
  set(VAKDTM_WITH_GDAL OFF)
endif()
