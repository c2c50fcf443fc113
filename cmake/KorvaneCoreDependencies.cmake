# What the core's libraries need, in the build and for whoever uses them installed: the one that includes this says what
# becomes of a missing library, in find_dependency and find_module_dependency.

find_dependency(PkgConfig)
find_dependency(Threads)
find_dependency(Boost 1.81 CONFIG COMPONENTS headers json url)
find_dependency(CURL 7.85)
find_dependency(fmt)
find_dependency(ICU COMPONENTS uc i18n data)
find_dependency(OpenSSL 3)
find_dependency(spdlog)
find_dependency(SQLite3)

find_module_dependency(argon2 libargon2)
find_module_dependency(gdkpixbuf gdk-pixbuf-2.0)
find_module_dependency(gio gio-2.0)
find_module_dependency(libsecret libsecret-1)
find_module_dependency(magic libmagic)
find_module_dependency(plist libplist-2.0)
