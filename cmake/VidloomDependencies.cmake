# Third-party libraries, all from Debian packages (scripts/packages lists them). Each is private to the folder that uses it.
find_package(PkgConfig REQUIRED)
pkg_check_modules(FFMPEG REQUIRED IMPORTED_TARGET libavformat libavcodec libavfilter libavutil libswscale libswresample)
pkg_check_modules(HIGHWAY REQUIRED IMPORTED_TARGET libhwy)
find_library(YUV_LIBRARY yuv REQUIRED)
find_path(YUV_INCLUDE_DIR libyuv.h REQUIRED)
find_package(Threads REQUIRED)
find_package(nlohmann_json REQUIRED)
find_package(CLI11 REQUIRED)
