// What the toolkit's pages use and do not show.
#pragma once

#include <vireo/app.h>
#include <vireo/app/Authentication.h>
#include <vireo/app/Json.h>
#include <vireo/app/Session.h>
#include <vireo/app/TestClient.h>

#include <algorithm>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

using namespace std::chrono_literals;

struct Note {
    std::string text;
};
NLOHMANN_DEFINE_TYPE_NON_INTRUSIVE(Note, text)
struct Notes {
    const Note* find(int id) const;
};
struct Row {
    std::string text() const;
};
struct Jobs {
    void submit(const std::string& what, const std::function<void(std::string)>& done);
};
struct User {
    std::string name;
};
struct Users {
    bool check(std::string_view user, std::string_view password) const;
};
struct Database {
    bool isThere() const;
};

User findUser(const vireo::Request& request);
std::string nextNumber();
void consume(const std::string& name, std::string_view piece);
void addNotes(vireo::App& app);
void listNotes(vireo::Request& request, vireo::Response& response);
void showNote(vireo::Request& request, vireo::Response& response);
void sendFile(vireo::Request& request, vireo::Response& response);

/// Lambdas capture what is in a function alone.
#define PAGE_ARGUMENTS                                                                                                 \
    vireo::App &app, vireo::Request &request, vireo::Response &response, vireo::TestClient &client, Notes &notes,      \
        std::vector<Row>&table, Jobs &jobs, Users &users, Database &database, const std::string &key,                  \
        const std::string &lastYearsKey, std::vector<std::string>&seen

#define TEST(suite, name) void suite##name()
#define EXPECT_EQ(left, right) static_cast<void>((left) == (right))
