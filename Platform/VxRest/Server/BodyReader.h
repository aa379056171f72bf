#pragma once
// Where the HTTP library's parser puts a request's body.

#include <cstdint>
#include <vector>

#include <boost/asio/buffer.hpp>
#include <boost/beast/core/buffers_range.hpp>
#include <boost/beast/http/error.hpp>
#include <boost/beast/http/message.hpp>
#include <boost/optional.hpp>

namespace VxRest::Http
{

/// A body type of the HTTP library that takes memory for what has arrived, not for what a header claims, and stops at a
/// limit.
struct BoundedBody
{
    struct value_type
    {
        std::vector<std::uint8_t> bytes;
        std::uint64_t limit = 0;
        std::uint64_t received = 0;
        bool discard = false;  ///< Count the bytes, keep none.
    };

    class reader
    {
    public:
        template <bool IsRequest, class Fields>
        reader(boost::beast::http::header<IsRequest, Fields>& /*header*/, value_type& body) : body_(body)
        {}

        void init(const boost::optional<std::uint64_t>& /*claimed*/, boost::beast::error_code& error) { error = {}; }

        template <class Buffers>
        std::size_t put(const Buffers& buffers, boost::beast::error_code& error)
        {
            const std::size_t size = boost::asio::buffer_size(buffers);
            if (size > body_.limit - body_.received) {
                error = boost::beast::http::error::body_limit;
                return 0;
            }
            body_.received += size;
            if (!body_.discard) {
                for (const boost::asio::const_buffer part : boost::beast::buffers_range_ref(buffers)) {
                    const auto* begin = static_cast<const std::uint8_t*>(part.data());
                    body_.bytes.insert(body_.bytes.end(), begin, begin + part.size());
                }
            }
            error = {};
            return size;
        }

        void finish(boost::beast::error_code& error) { error = {}; }

    private:
        value_type& body_;
    };
};

}  // namespace VxRest::Http
