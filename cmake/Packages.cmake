# Debian packages, one a component (docs/packages.md): `cpack --config build/release/CPackConfig.cmake`,
# likewise for build/armhf.

if(NOT USE_BUNDLED_PLATFORM OR HEAD_SANITIZE)
  return()
endif()

set(HEAD_PACKAGE_CONTACT "Sensor board 3U5MGXS maintainers <maintainers@sensor-board-3u5mgxs.example>"
    CACHE STRING "Maintainer in the Debian packages; name your own before you hand packages out")

set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME sensor-board-3u5mgxs)
set(CPACK_PACKAGE_CONTACT ${HEAD_PACKAGE_CONTACT})
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "") # each package has its own
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_STRIP_FILES ON)
set(CPACK_COMPONENTS_ALL plugin runtime sdk head headsdk tools decoders python)
if(HEAD_DOXYGEN)
  list(APPEND CPACK_COMPONENTS_ALL doc)
endif()
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SOURCE sensor-board-3u5mgxs)
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)
if(CMAKE_CROSSCOMPILING)
  set(CPACK_DEBIAN_PACKAGE_ARCHITECTURE armhf)
else()
  execute_process(COMMAND dpkg --print-architecture OUTPUT_VARIABLE CPACK_DEBIAN_PACKAGE_ARCHITECTURE
                  OUTPUT_STRIP_TRAILING_WHITESPACE)
endif()

set(CPACK_DEBIAN_PLUGIN_PACKAGE_NAME sensor-board-3u5mgxs)
set(CPACK_DEBIAN_PLUGIN_PACKAGE_SECTION misc)
set(CPACK_COMPONENT_PLUGIN_DESCRIPTION
    "sensor-board plug-in for the 3U5MGXS image sensor
A camera host loads this shared library to drive a camera head with a 3U5MGXS
sensor: it powers the sensor up, loads its registers, trains the serial link
into the FPGA and serves the host's settings.
.
It expects the board's register settings in the host's working directory.")

# One package for both libraries: their sonames change together (HEAD_PLATFORM_SOVERSION).
set(CPACK_DEBIAN_RUNTIME_PACKAGE_NAME libvarnox${HEAD_PLATFORM_SOVERSION})
set(CPACK_DEBIAN_RUNTIME_PACKAGE_SECTION libs)
set(CPACK_COMPONENT_RUNTIME_DESCRIPTION
    "host and board-support library of a camera stack
libvarnox and libpellum stand between a sensor-board plug-in and the kernel:
the host's interfaces, SPI ports and FPGA cores, and the board's GPIO lines and
supply monitor.
.
This package holds the libraries that programs and plug-ins run on.")

set(CPACK_DEBIAN_SDK_PACKAGE_NAME libvarnox-dev)
set(CPACK_DEBIAN_SDK_PACKAGE_SECTION libdevel)
set(CPACK_COMPONENT_SDK_DESCRIPTION
    "host and board-support library of a camera stack, development files
libvarnox and libpellum stand between a sensor-board plug-in and the kernel:
the host's interfaces, SPI ports and FPGA cores, and the board's GPIO lines and
supply monitor.
.
This package holds headers, CMake packages and pkg-config files to build
plug-ins and hosts with, and a host and a plug-in to begin with.")

set(CPACK_DEBIAN_HEAD_PACKAGE_NAME libvirtual-head${HEAD_VIRTUAL_HEAD_SOVERSION})
set(CPACK_DEBIAN_HEAD_PACKAGE_SECTION libs)
set(CPACK_COMPONENT_HEAD_DESCRIPTION
    "virtual camera head for tests
A program that links this library runs on a camera head that is not there: the
head answers the program's device files, tells what the hardware saw and what
the program did wrong.
.
This package holds the library that tests and the program virtual-head run on.")

set(CPACK_DEBIAN_HEADSDK_PACKAGE_NAME libvirtual-head-dev)
set(CPACK_DEBIAN_HEADSDK_PACKAGE_SECTION libdevel)
set(CPACK_COMPONENT_HEADSDK_DESCRIPTION
    "virtual camera head for tests, development files
A program that links this library runs on a camera head that is not there: the
head answers the program's device files, tells what the hardware saw and what
the program did wrong.
.
This package holds headers, CMake package and pkg-config file to build tests
with, and a test to begin with.")

# One package for the pages of both: they link each other. The same for every processor.
set(CPACK_DEBIAN_DOC_PACKAGE_NAME camera-head-doc)
set(CPACK_DEBIAN_DOC_PACKAGE_SECTION doc)
set(CPACK_DEBIAN_DOC_PACKAGE_ARCHITECTURE all)
set(CPACK_COMPONENT_DOC_DESCRIPTION
    "camera heads, their host libraries and the virtual head, API pages
Pages about every class and function of the headers in libvarnox-dev and
libvirtual-head-dev, for those who write hosts, plug-ins and tests.
.
Begin with /usr/share/doc/camera-head-doc/html/index.html.")

set(CPACK_DEBIAN_TOOLS_PACKAGE_NAME camera-head-tools)
set(CPACK_DEBIAN_TOOLS_PACKAGE_SECTION utils)
set(CPACK_DEBIAN_TOOLS_PACKAGE_RECOMMENDS sensor-board-3u5mgxs)
set(CPACK_COMPONENT_TOOLS_DESCRIPTION
    "camera host for the command line, and a virtual camera head
camhost loads a sensor-board plug-in and drives a camera head by text commands,
from a script, a console or a line server.
.
virtual-head runs a program on a camera head that is not there: it answers the
device files, tells what the hardware saw and what the program did wrong.")

# Read by a library that runs Python, the same for every processor. Debian's programs that show signals depend on it.
set(CPACK_DEBIAN_DECODERS_PACKAGE_NAME camera-head-decoders)
set(CPACK_DEBIAN_DECODERS_PACKAGE_SECTION electronics)
set(CPACK_DEBIAN_DECODERS_PACKAGE_ARCHITECTURE all)
set(CPACK_DEBIAN_DECODERS_PACKAGE_DEPENDS libsigrokdecode4)
set(CPACK_DEBIAN_DECODERS_PACKAGE_RECOMMENDS "sigrok-cli | pulseview")
set(CPACK_COMPONENT_DECODERS_DESCRIPTION
    "camera head with a 3U5MGXS sensor, protocol decoders for sigrok
A logic analyser on the wires of a camera head shows bits. These decoders say
which register and fields of the sensor a word writes, and which supply the
head's monitor reads.
.
sigrok-cli and PulseView find them by the names sensor_3u5mgxs and
monitor_3u5mgxs.")

# Who asks a head on another machine needs no programs.
set(CPACK_DEBIAN_PYTHON_PACKAGE_NAME python3-virtual-head)
set(CPACK_DEBIAN_PYTHON_PACKAGE_SECTION python)
set(CPACK_DEBIAN_PYTHON_PACKAGE_ARCHITECTURE all)
set(CPACK_DEBIAN_PYTHON_PACKAGE_DEPENDS "python3 (>= 3.11)")
set(CPACK_DEBIAN_PYTHON_PACKAGE_RECOMMENDS "camera-head-tools (= ${PROJECT_VERSION}), python3-pytest")
set(CPACK_DEBIAN_PYTHON_PACKAGE_SUGGESTS python3-numpy)
# Byte code is made when the package is configured, and goes with it.
set(CPACK_DEBIAN_PYTHON_PACKAGE_CONTROL_EXTRA ${CMAKE_CURRENT_LIST_DIR}/debian/python/postinst
                                              ${CMAKE_CURRENT_LIST_DIR}/debian/python/prerm)
set(CPACK_COMPONENT_PYTHON_DESCRIPTION
    "virtual camera head for test benches in Python
Starts a program on a camera head that is not there, or attaches to one that
runs: asks its state, registers and pictures, waits for events, and makes
faults.
.
pytest finds its fixtures by itself. An example lies in
/usr/share/doc/python3-virtual-head/examples.")

# The libraries' package says itself who needs which version of it, and asks for ldconfig.
set(head_debian ${CMAKE_BINARY_DIR}/debian)
file(WRITE ${head_debian}/triggers "activate-noawait ldconfig\n")
file(WRITE ${head_debian}/shlibs "")
foreach(library varnox pellum)
  file(APPEND ${head_debian}/shlibs
       "lib${library} ${HEAD_PLATFORM_SOVERSION} libvarnox${HEAD_PLATFORM_SOVERSION} (>= ${PROJECT_VERSION})\n")
endforeach()
set(CPACK_DEBIAN_RUNTIME_PACKAGE_CONTROL_EXTRA ${head_debian}/triggers ${head_debian}/shlibs)
# Nobody guards the virtual head's binary interface: a program needs the version that it was built with.
file(WRITE ${head_debian}/head/shlibs
     "libvirtual_head ${HEAD_VIRTUAL_HEAD_SOVERSION} libvirtual-head${HEAD_VIRTUAL_HEAD_SOVERSION} (= ${PROJECT_VERSION})\n")
set(CPACK_DEBIAN_HEAD_PACKAGE_CONTROL_EXTRA ${head_debian}/triggers ${head_debian}/head/shlibs)

set(CPACK_PRE_BUILD_SCRIPTS ${CMAKE_CURRENT_LIST_DIR}/debian/Dependencies.cmake
                            ${CMAKE_CURRENT_LIST_DIR}/debian/Documents.cmake)
set(CPACK_HEAD_SOURCE ${CMAKE_SOURCE_DIR})
set(CPACK_HEAD_BUILD ${CMAKE_BINARY_DIR})
set(CPACK_HEAD_TRIPLET ${CMAKE_LIBRARY_ARCHITECTURE})

include(CPack)
