#pragma once

#include <vireo/app.h>
#include <vireo/app/Json.h>

#include <ctime>
#include <map>
#include <mutex>
#include <string>

struct Plant {
    int days = 7;            ///< it wants water every so many
    std::time_t watered = 0; ///< when it last was, in seconds since 1970
};
NLOHMANN_DEFINE_TYPE_NON_INTRUSIVE(Plant, days, watered)

/// What has been told of the plants. Any thread.
class Board {
public:
    std::map<std::string, Plant> all() const;
    Plant find(const std::string& name) const;
    void put(const std::string& name, int days);
    void water(const std::string& name);

private:
    mutable std::mutex mutex_;
    std::map<std::string, Plant> plants_;
};

/// The board outlives the app.
void addRoutes(vireo::App& app, Board& board);
