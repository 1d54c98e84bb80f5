// The event loop's context, named without its library: modules pass it on, and only sources that
// wait for something include Asio.
#pragma once

namespace boost::asio {
class io_context;
}  // namespace boost::asio
