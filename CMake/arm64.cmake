# Builds for arm64 on another Debian, with the libraries of its packages for that architecture.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR aarch64)
set(CMAKE_CXX_COMPILER aarch64-linux-gnu-g++)
# The processor of many phones. The emulator's default has pointer authentication, which Debian 12's emulator computes in
# software: a test of 4 s took more than 200 s.
set(CMAKE_CROSSCOMPILING_EMULATOR qemu-aarch64-static -cpu cortex-a53)
set(CPACK_DEBIAN_PACKAGE_ARCHITECTURE arm64)
set(ENV{PKG_CONFIG_LIBDIR} /usr/lib/aarch64-linux-gnu/pkgconfig:/usr/share/pkgconfig)

# The tools of Qt that write code run here.
execute_process(COMMAND dpkg-architecture -q DEB_BUILD_MULTIARCH OUTPUT_VARIABLE host OUTPUT_STRIP_TRAILING_WHITESPACE)
set(QT_HOST_PATH /usr)
set(QT_HOST_PATH_CMAKE_DIR /usr/lib/${host}/cmake)
