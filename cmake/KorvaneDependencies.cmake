# Every library from Debian that any target links. docs/architecture.md says what each is for.

find_package(PkgConfig REQUIRED)
find_package(Threads REQUIRED)

find_package(Boost 1.81 CONFIG REQUIRED COMPONENTS headers json url)
find_package(CLI11 REQUIRED)
find_package(CURL 7.85 REQUIRED)
find_package(fmt REQUIRED)
find_package(GTest REQUIRED)
find_package(ICU REQUIRED COMPONENTS uc i18n data)
find_package(OpenSSL 3 REQUIRED)
find_package(spdlog REQUIRED)
find_package(SQLite3 REQUIRED)
find_package(benchmark REQUIRED)

pkg_check_modules(argon2 REQUIRED IMPORTED_TARGET libargon2)
pkg_check_modules(gdkpixbuf REQUIRED IMPORTED_TARGET gdk-pixbuf-2.0)
pkg_check_modules(gtkmm REQUIRED IMPORTED_TARGET gtkmm-4.0)
pkg_check_modules(magic REQUIRED IMPORTED_TARGET libmagic)
pkg_check_modules(pangocairo REQUIRED IMPORTED_TARGET pangocairo)
pkg_check_modules(plist REQUIRED IMPORTED_TARGET libplist-2.0)
pkg_check_modules(rsvg REQUIRED IMPORTED_TARGET librsvg-2.0)
