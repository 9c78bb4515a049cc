#include "Agent/History/RecordTimes.h"

namespace Agent {

namespace {

double latestTime( const HistoryIntf & intf ) {
   double latest = std::max(
      { intf.began(), intf.released(), intf.profileChanged(), intf.firstRates().sampleTime, intf.drained(),
        intf.shut(), intf.raised(), intf.peakRates().sampleTime } );
   for ( const auto & [time, reason] : intf.reasonRange() )
      latest = std::max( latest, time );
   for ( const auto & [time, spike] : intf.spikeRange() )
      latest = std::max( { latest, time, spike.ended } );
   for ( const auto & [time, what] : intf.driftChangeRange() )
      latest = std::max( latest, time );
   return latest;
}

double latestTime( const HistoryRecord & record ) {
   double latest = std::max(
      { record.began(), record.inMaintenance(), record.exitBegan(), record.ended(), record.overrun() } );
   for ( const auto & [key, stage] : record.stageRange() )
      latest = std::max( { latest, stage->began(), stage->ended() } );
   for ( const auto & [id, intf] : record.intfRange() )
      latest = std::max( latest, latestTime( *intf ) );
   return latest;
}

} // namespace

double latestTime( const HistoryDir & historyDir ) {
   double latest = 0;
   for ( const auto & [id, record] : historyDir.recordRange() )
      latest = std::max( latest, latestTime( *record ) );
   return latest;
}

} // namespace Agent
