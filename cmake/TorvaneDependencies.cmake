# Third-party parts: an installed package, or sources of a repository at a fixed commit.
#
# Sources are built by targets of this project, with the flags of the code that they become a part of: of a repository only
# its files are used. FETCHCONTENT_SOURCE_DIR_<PART> names a folder that has them already, and
# FETCHCONTENT_FULLY_DISCONNECTED forbids downloads.
include(FetchContent)

# Package, repository, commit. Without a package (-) sources are used: the baselines of the benchmarks have to be compiled as
# the Agent is.
set(torvanePart_xxhash xxHash Cyan4973/xxHash 35b0373c697b5f160d3db26b1cbb45a0d5ba788c)               # 0.8.1
set(torvanePart_zydis Zydis zyantific/zydis 1ba75aeefae37094c7be8eba07ff81d4fe0f1f20)                 # 4.0.0
set(torvanePart_zycore Zycore zyantific/zycore-c 1401fb85ac313f6605ec795c52bf99ea3f292a69)            # 1.4.1
set(torvanePart_nlohmann_json nlohmann_json nlohmann/json bc889afb4c5bf1c0d8ee29ef35eaaf4c8bef8a5d)   # 3.11.2
set(torvanePart_ZLIB ZLIB madler/zlib 04f42ceca40f73e2978b50e93806c2a18c1281fc)                       # 1.2.13
set(torvanePart_googletest GTest google/googletest 58d77fa8070e8cec2dc1ed015d66b454c8d78850)          # 1.12.1
set(torvanePart_benchmark - google/benchmark d572f4777349d43653b21d6c2fc63020ab326db2)                # 1.7.1
set(torvanePart_mimalloc - microsoft/mimalloc 28cf67e5b64c704cad993c71f29a24e781bee544)               # 2.0.9
set(torvanePart_spdlog - gabime/spdlog 76fb40d95455f249bd70824ecfcae7a8f0930fa3)                      # 1.10.0
set(torvanePart_fmt - fmtlib/fmt a33701196adfad74917046096bf5a2aa0ab0bb50)                            # 9.1.0
set(torvanePart_rapidjson - Tencent/rapidjson f54b0e47a08782a6131cc3d60f94d038fa6e0a51)               # 1.1.0
set(torvanePart_abseil - abseil/abseil-cpp 8c0b94e793a66495e0b1f34a5eb26bd7dc672db0)                  # 20220623.1

# torvane_find_parts(part...): afterwards either <part>_FOUND is true and the targets of its package exist, or
# <part>_SOURCE_DIR, in lower case, is the folder of its sources.
macro(torvane_find_parts)
    foreach(part ${ARGN})
        list(GET torvanePart_${part} 0 package)
        list(GET torvanePart_${part} 1 repository)
        list(GET torvanePart_${part} 2 commit)
        set(search FIND_PACKAGE_ARGS NAMES ${package} CONFIG)
        if(package STREQUAL part) # CMake can have a module that finds it
            set(search FIND_PACKAGE_ARGS)
        endif()
        if(package STREQUAL "-")
            set(search "")
        endif()
        FetchContent_Declare(${part} GIT_REPOSITORY "https://github.com/${repository}.git" GIT_TAG ${commit}
            GIT_SUBMODULES "" SOURCE_SUBDIR none ${search})
        FetchContent_MakeAvailable(${part})
    endforeach()
endmacro()
