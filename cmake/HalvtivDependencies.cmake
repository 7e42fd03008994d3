# Every library that HalvTiv uses, declared once; docs/architecture.md says why each is there.
find_package(PkgConfig REQUIRED)
find_package(pugixml REQUIRED)  # the tree and XPath
find_package(EXPAT REQUIRED)    # strict reading
find_package(SQLite3 3.39 REQUIRED)
pkg_check_modules(libpq REQUIRED IMPORTED_TARGET libpq)  # PostgreSQL
pkg_check_modules(odbc REQUIRED IMPORTED_TARGET odbc)  # databases through their ODBC drivers
find_package(Threads REQUIRED)
find_package(Iconv REQUIRED)    # definition files in any encoding
pkg_check_modules(utf8proc REQUIRED IMPORTED_TARGET libutf8proc)  # letter case, display width

if(HALVTIV_BUILD_EXPORTERS)
    pkg_check_modules(xlsxwriter REQUIRED IMPORTED_TARGET xlsxwriter)  # spreadsheets
    find_package(ZLIB REQUIRED)  # reads finished spreadsheets once more
endif()
if(HALVTIV_BUILD_CLI)
    find_package(CLI11 REQUIRED)
endif()
if(HALVTIV_BUILD_TESTS)
    find_package(GTest REQUIRED)
endif()
if(HALVTIV_BUILD_BENCH)
    find_package(benchmark REQUIRED)
endif()
