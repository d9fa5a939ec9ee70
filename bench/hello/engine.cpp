// The least program that serves by the engine alone: what the others' sizes and starts are compared with.

#include <cstddef>
#include <cstdio>
#include <string_view>

#include <microhttpd.h>

namespace {

constexpr std::string_view Body = "hello world\n";

MHD_Result answer(void* /*closure*/, MHD_Connection* connection, const char* /*url*/, const char* /*method*/,
                  const char* /*version*/, const char* /*data*/, std::size_t* /*size*/, void** /*slot*/) {
    MHD_Response* const response =
        MHD_create_response_from_buffer(Body.size(), const_cast<char*>(Body.data()), MHD_RESPMEM_PERSISTENT);
    const MHD_Result result = MHD_queue_response(connection, MHD_HTTP_OK, response);
    MHD_destroy_response(response);
    return result;
}

} // namespace

int main() {
    MHD_Daemon* const daemon = MHD_start_daemon(MHD_USE_AUTO | MHD_USE_INTERNAL_POLLING_THREAD, 8181, nullptr, nullptr,
                                                &answer, nullptr, MHD_OPTION_END);
    if (daemon == nullptr) {
        return 1;
    }
    std::getchar(); // serves http://127.0.0.1:8181/ until Enter is pressed
    MHD_stop_daemon(daemon);
    return 0;
}
