// Asio is compiled once, here; every other file includes declarations only (BOOST_ASIO_SEPARATE_COMPILATION).
#include <boost/asio/impl/src.hpp>
