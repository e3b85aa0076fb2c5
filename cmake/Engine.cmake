# The speech engine that comes with the program: whisper.cpp's `whisper-server`, and the model that
# tells it where somebody speaks. All of it is optional; without, an engine that was installed by
# itself is used. There are three ways to a server, the first one given wins:
#
#   QUENDA_WHISPER_SERVER=FILE    a program that was built already
#   QUENDA_WHISPER_SOURCE=FOLDER  whisper.cpp's sources; they are built here, nothing is downloaded
#   QUENDA_BUILD_WHISPER=ON       the release QUENDA_WHISPER_VERSION is downloaded and built
#
# The last one wants QUENDA_WHISPER_SHA256, the digest of the release's archive as you trust it: the
# project keeps no copy of the archive and vouches for no digest, and what is downloaded and then
# run is never taken unchecked.
#
# What is built or given lies in lib/quenda/bin of the build folder, where the program that was built
# finds it, and is installed to the same place under the prefix.
#
# Sets QUENDA_ENGINE_FILES, the files that belong beside the program, and makes the target
# `quenda_engine`, which provides them.

set(QUENDA_WHISPER_SERVER "" CACHE FILEPATH "A whisper-server to install with the program")
set(QUENDA_WHISPER_SOURCE "" CACHE PATH "whisper.cpp's sources, to build whisper-server from")
option(QUENDA_BUILD_WHISPER "Download a release of whisper.cpp and build whisper-server" OFF)
# The first release whose server knows --vad. Later ones do as well.
set(QUENDA_WHISPER_VERSION "1.7.6" CACHE STRING "The release of whisper.cpp to download")
set(QUENDA_WHISPER_SHA256 "" CACHE STRING "SHA-256 of that release's archive, in hexadecimal")
set(QUENDA_WHISPER_URL
    "https://github.com/ggml-org/whisper.cpp/archive/refs/tags/v${QUENDA_WHISPER_VERSION}.tar.gz"
    CACHE STRING "Where that release's archive is")
set(QUENDA_WHISPER_ARGUMENTS "" CACHE STRING
    "Further arguments for whisper.cpp's own CMake, such as -DGGML_CUDA=ON")
set(QUENDA_VAD_MODEL "" CACHE FILEPATH "ggml-silero-v5.1.2.bin to install with the program")

set(QUENDA_ENGINE_FILES "")
set(engine_folder ${PROJECT_BINARY_DIR}/${QUENDA_RESOURCE_DIR}/bin)
set(engine_server ${engine_folder}/whisper-server)
add_custom_target(quenda_engine ALL)

# Provides a file that exists already, under the name that the program looks for.
function(quenda_engine_copy file copy)
    if(NOT EXISTS ${file} OR IS_DIRECTORY ${file})
        message(FATAL_ERROR "There is no file ${file}")
    endif()
    add_custom_command(OUTPUT ${copy}
        COMMAND ${CMAKE_COMMAND} -E make_directory ${engine_folder}
        COMMAND ${CMAKE_COMMAND} -E copy ${file} ${copy}
        DEPENDS ${file} VERBATIM)
    get_filename_component(name ${copy} NAME)
    add_custom_target(quenda_engine_${name} DEPENDS ${copy})
    add_dependencies(quenda_engine quenda_engine_${name})
endfunction()

if(QUENDA_WHISPER_SERVER)
    quenda_engine_copy(${QUENDA_WHISPER_SERVER} ${engine_server})
    list(APPEND QUENDA_ENGINE_FILES ${engine_server})
elseif(QUENDA_WHISPER_SOURCE OR QUENDA_BUILD_WHISPER)
    include(ExternalProject)
    if(QUENDA_WHISPER_SOURCE)
        if(NOT EXISTS ${QUENDA_WHISPER_SOURCE}/CMakeLists.txt)
            message(FATAL_ERROR "QUENDA_WHISPER_SOURCE: no CMakeLists.txt in ${QUENDA_WHISPER_SOURCE}")
        endif()
        # Who gives a folder may change what is in it.
        set(engine_source SOURCE_DIR ${QUENDA_WHISPER_SOURCE} DOWNLOAD_COMMAND "" BUILD_ALWAYS ON)
    else()
        string(TOLOWER "${QUENDA_WHISPER_SHA256}" engine_digest)
        string(LENGTH "${engine_digest}" engine_digest_length)
        if(NOT engine_digest_length EQUAL 64 OR NOT engine_digest MATCHES "^[0-9a-f]+$")
            message(FATAL_ERROR "QUENDA_BUILD_WHISPER needs QUENDA_WHISPER_SHA256, the SHA-256 of "
                "${QUENDA_WHISPER_URL} (64 hexadecimal digits). Or give the sources themselves "
                "with QUENDA_WHISPER_SOURCE.")
        endif()
        set(engine_source URL ${QUENDA_WHISPER_URL} URL_HASH SHA256=${engine_digest}
            DOWNLOAD_EXTRACT_TIMESTAMP ON)
    endif()

    # The switches of whisper.cpp's own build: one program that needs none of its libraries.
    set(engine_arguments
        -DCMAKE_BUILD_TYPE=Release -DBUILD_SHARED_LIBS=OFF
        -DWHISPER_BUILD_EXAMPLES=ON -DWHISPER_BUILD_SERVER=ON -DWHISPER_BUILD_TESTS=OFF
        -DCMAKE_RUNTIME_OUTPUT_DIRECTORY=<BINARY_DIR>/bin -DCMAKE_POSITION_INDEPENDENT_CODE=ON
        -DCMAKE_CXX_COMPILER=${CMAKE_CXX_COMPILER}
        -DCMAKE_C_FLAGS=${CMAKE_CXX_FLAGS} -DCMAKE_CXX_FLAGS=${CMAKE_CXX_FLAGS}
        -DCMAKE_EXE_LINKER_FLAGS=${CMAKE_EXE_LINKER_FLAGS})
    foreach(name CMAKE_CXX_COMPILER_LAUNCHER CMAKE_TOOLCHAIN_FILE CMAKE_OSX_DEPLOYMENT_TARGET
                 CMAKE_OSX_ARCHITECTURES)
        if(DEFINED ${name})
            list(APPEND engine_arguments "-D${name}=${${name}}")
        endif()
    endforeach()
    ExternalProject_Add(quenda_whisper
        ${engine_source}
        PREFIX ${PROJECT_BINARY_DIR}/whisper
        BINARY_DIR ${PROJECT_BINARY_DIR}/whisper/build
        CMAKE_ARGS ${engine_arguments} ${QUENDA_WHISPER_ARGUMENTS}
        BUILD_COMMAND ${CMAKE_COMMAND} --build <BINARY_DIR> --target whisper-server
            COMMAND ${CMAKE_COMMAND} -E make_directory ${engine_folder}
            COMMAND ${CMAKE_COMMAND} -E copy <BINARY_DIR>/bin/whisper-server ${engine_server}
        BUILD_BYPRODUCTS ${engine_server}
        INSTALL_COMMAND "" TEST_COMMAND "" USES_TERMINAL_BUILD ON)
    add_dependencies(quenda_engine quenda_whisper)
    list(APPEND QUENDA_ENGINE_FILES ${engine_server})
endif()

if(QUENDA_VAD_MODEL)
    quenda_engine_copy(${QUENDA_VAD_MODEL} ${engine_folder}/ggml-silero-v5.1.2.bin)
    list(APPEND QUENDA_ENGINE_FILES ${engine_folder}/ggml-silero-v5.1.2.bin)
endif()

if(NOT APPLE) # where the bundle takes the files in, see Sources/CMakeLists.txt
    foreach(file ${QUENDA_ENGINE_FILES})
        if(file STREQUAL engine_server)
            install(PROGRAMS ${file} DESTINATION ${QUENDA_RESOURCE_DIR}/bin)
        else()
            install(FILES ${file} DESTINATION ${QUENDA_RESOURCE_DIR}/bin)
        endif()
    endforeach()
    if(QUENDA_WHISPER_SOURCE OR QUENDA_BUILD_WHISPER)
        # Its licence asks to go with every copy.
        install(CODE "
            foreach(folder \"${QUENDA_WHISPER_SOURCE}\" \"${PROJECT_BINARY_DIR}/whisper/src/quenda_whisper\")
                if(EXISTS \"\${folder}/LICENSE\")
                    file(INSTALL \"\${folder}/LICENSE\" RENAME copyright.whisper.cpp
                        DESTINATION \"\${CMAKE_INSTALL_PREFIX}/${CMAKE_INSTALL_DATADIR}/doc/quenda\")
                    break()
                endif()
            endforeach()")
    endif()
endif()
