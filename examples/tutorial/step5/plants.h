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
    Board();
    /// All plants as JSON: as they are now, and after each change.
    const vireo::EventChannel& changes() const { return changes_; }
    std::map<std::string, Plant> all() const;
    Plant find(const std::string& name) const;
    void put(const std::string& name, int days);
    void water(const std::string& name);

private:
    void publish(); ///< under the lock, so that what is newest comes last

    mutable std::mutex mutex_;
    std::map<std::string, Plant> plants_;
    vireo::EventChannel changes_{vireo::EventOptions().replay(1).replayToAll()};
};

/// The board outlives the app.
/// @param page the directory of what browsers get
/// @param data the directory in which "pictures" lies
void addRoutes(vireo::App& app, Board& board, const std::string& page, const std::string& data);
