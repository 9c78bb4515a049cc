#include "Agent/Control/AnswersJson.h"

#include <nlohmann/json.hpp>

namespace Agent {

using nlohmann::json;

json Answers::Json::times( const std::string & unit ) const {
   const UnitTimes * const times = model.unitTimesDir->unit( unit );
   const double deadline = times ? times->deadline() : 0, overrun = times ? times->overrun() : 0,
                revertAt = times ? times->revertAt() : 0;
   return {
      { "deadline", time( deadline ) },
      { "deadline-left-seconds", deadline > 0 && overrun == 0 ? ahead( deadline ) : json( nullptr ) },
      { "on-overrun", deadline > 0 ? json( times->restore() ? "restore" : "keep" ) : json( nullptr ) },
      { "overrun", time( overrun ) },
      { "revert-at", time( revertAt ) },
      { "revert-left-seconds", revertAt > 0 ? ahead( revertAt ) : json( nullptr ) },
      { "doubt", times ? textOrNull( times->doubt() ) : json( nullptr ) } };
}

} // namespace Agent
