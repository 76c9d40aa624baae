# For another machine, with Debian's cross-compiler and libraries for it. Which one is in the
# environment: eval "$(dpkg-architecture --host-arch arm64 --print-set)"

set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR $ENV{DEB_HOST_GNU_CPU})
set(CMAKE_CXX_COMPILER $ENV{DEB_HOST_GNU_TYPE}-g++)
set(PKG_CONFIG_EXECUTABLE /usr/bin/$ENV{DEB_HOST_GNU_TYPE}-pkg-config)

# Archives and objects of the machine itself go before those that come with a compiler for it, which
# lag behind.
set(CMAKE_CXX_STANDARD_LIBRARIES -B/usr/lib/$ENV{DEB_HOST_MULTIARCH}/ CACHE STRING "")
