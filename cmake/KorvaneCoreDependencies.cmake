# What the core's libraries need, in the build and for whoever uses them installed.

find_dependency(PkgConfig)
find_dependency(Threads)
find_dependency(Boost 1.81 CONFIG COMPONENTS headers json url)
find_dependency(CURL 7.85)
find_dependency(fmt)
find_dependency(ICU COMPONENTS uc i18n data)
find_dependency(OpenSSL 3)
find_dependency(spdlog)
find_dependency(SQLite3)

pkg_check_modules(argon2 REQUIRED IMPORTED_TARGET libargon2)
pkg_check_modules(gdkpixbuf REQUIRED IMPORTED_TARGET gdk-pixbuf-2.0)
pkg_check_modules(gio REQUIRED IMPORTED_TARGET gio-2.0)
pkg_check_modules(libsecret REQUIRED IMPORTED_TARGET libsecret-1)
pkg_check_modules(magic REQUIRED IMPORTED_TARGET libmagic)
pkg_check_modules(plist REQUIRED IMPORTED_TARGET libplist-2.0)
