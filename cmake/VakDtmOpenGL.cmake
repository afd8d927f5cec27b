# OpenGL and GLU, or the option off where they aren't: the library then judges in the plane alone.
find_package(OpenGL QUIET)
find_path(VAKDTM_GLU_HEADER GL/glu.h)
mark_as_advanced(VAKDTM_GLU_HEADER)
if(NOT OPENGL_FOUND OR NOT OPENGL_GLU_FOUND OR NOT VAKDTM_GLU_HEADER)
  message(STATUS "VAKDTM_WITH_OPENGL is off: OpenGL or GLU is missing (libglu1-mesa-dev has both)")
  set(VAKDTM_WITH_OPENGL OFF)
endif()
