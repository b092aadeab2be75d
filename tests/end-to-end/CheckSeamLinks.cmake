# The Wine-compatible OS seam is linked into the end-to-end build only:
#   cmake -DPRODUCT=… -DEND_TO_END=… -P CheckSeamLinks.cmake
# Its class leaves its type name in every DLL that contains it; the DLL that ships has none, the
# end-to-end one must (or this check could not tell the two apart).
cmake_minimum_required(VERSION 3.25)
file(STRINGS ${PRODUCT} product_hits REGEX "WineOsSeam")
file(STRINGS ${END_TO_END} end_to_end_hits REGEX "WineOsSeam")
if(product_hits)
  message(FATAL_ERROR "${PRODUCT} contains the end-to-end OS seam: ${product_hits}")
endif()
if(NOT end_to_end_hits)
  message(FATAL_ERROR "${END_TO_END} does not contain the end-to-end OS seam")
endif()
message(STATUS "the seam is in the end-to-end build only")
