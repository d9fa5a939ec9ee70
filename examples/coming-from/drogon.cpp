#include <drogon/WebSocketController.h>
#include <drogon/drogon.h>

#include <cstdlib>

class Echo : public drogon::WebSocketController<Echo> {
public:
    void handleNewMessage(const drogon::WebSocketConnectionPtr& connection, std::string&& message,
                          const drogon::WebSocketMessageType& type) override {
        if (type == drogon::WebSocketMessageType::Text) {
            connection->send(message);
        }
    }
    void handleNewConnection(const drogon::HttpRequestPtr&, const drogon::WebSocketConnectionPtr&) override {}
    void handleConnectionClosed(const drogon::WebSocketConnectionPtr&) override {}
    WS_PATH_LIST_BEGIN
    WS_PATH_ADD("/echo");
    WS_PATH_LIST_END
};

using Callback = std::function<void(const drogon::HttpResponsePtr&)>;

int main(int argc, char** argv) {
    drogon::app().registerHandler("/hello/{name}",
                                  [](const drogon::HttpRequestPtr&, Callback&& callback, const std::string& name) {
                                      Json::Value answer;
                                      answer["hello"] = name;
                                      callback(drogon::HttpResponse::newHttpJsonResponse(answer));
                                  },
                                  {drogon::Get});
    drogon::app().registerHandler("/upload",
                                  [](const drogon::HttpRequestPtr& request, Callback&& callback) {
                                      const auto response = drogon::HttpResponse::newHttpResponse();
                                      response->setContentTypeCode(drogon::CT_TEXT_PLAIN);
                                      response->setBody(std::to_string(request->body().size()) + " bytes\n");
                                      callback(response);
                                  },
                                  {drogon::Put});
    drogon::app().setClientMaxBodySize(1000000).addListener("127.0.0.1", argc > 1 ? std::atoi(argv[1]) : 8181).run();
}
