// The compiled part of Boost.URL, so that nothing has to be linked.
#include <boost/url/src.hpp>
