# Every library from Debian that any target links. docs/architecture.md says what each is for.

macro(find_dependency)
  find_package(${ARGN} REQUIRED)
endmacro()
macro(find_module_dependency name module)
  pkg_check_modules(${name} REQUIRED IMPORTED_TARGET ${module})
endmacro()
include(KorvaneCoreDependencies)

find_package(CLI11 REQUIRED)
find_package(GTest REQUIRED)
find_package(benchmark REQUIRED)

pkg_check_modules(gtkmm REQUIRED IMPORTED_TARGET gtkmm-4.0)
pkg_check_modules(pangocairo REQUIRED IMPORTED_TARGET pangocairo)
pkg_check_modules(rsvg REQUIRED IMPORTED_TARGET librsvg-2.0)
