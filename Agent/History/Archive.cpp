#include "Agent/History/Archive.h"

#include "Agent/History/WholeFile.h"
#include "Api/Error.h"

#include <nlohmann/json.hpp>

#include <charconv>
#include <filesystem>
#include <map>
#include <vector>

namespace Agent {

namespace {

const char * const ending = ".json";

/// The id that a file in the folder is named after; 0: it is none of ours.
Vel::U32 idOf( const std::string & name ) {
   Vel::U32 id = 0;
   const char * const end = name.data() + name.size();
   const auto [stop, error] = std::from_chars( name.data(), end, id );
   return error == std::errc() && std::string_view( stop, end ) == ending ? id : 0;
}

} // namespace

Archive::Archive(
   Vel::Ptr< Cog::Scheduler > scheduler, const Vel::Ptr< Cog::TimerWheel > & wheel, std::string folder,
   Vel::Ptr< HistoryDir > historyDir, Vel::Ptr< const HistoryPeaksDir > peaksDir, Hooks hooks )
   : scheduler_( std::move( scheduler ) ),
     folder_( std::move( folder ) ),
     historyDir_( std::move( historyDir ) ),
     peaksDir_( std::move( peaksDir ) ),
     hooks_( std::move( hooks ) ),
     self_( std::make_shared< Archive * >( this ) ) {
   wakeup_.is( wheel, this ).hasNotificationActiveIs( true );
   look();
}

Archive::~Archive() { *self_ = nullptr; }

std::string Archive::path( Vel::U32 id ) const { return folder_ + "/" + std::to_string( id ) + ending; }

double Archive::wallOffset( const HistoryRecord & record ) const {
   return record.ended() > 0 ? record.wallOffset() : hooks_.wallTime( now() ) - now();
}

std::string Archive::textOf( const HistoryRecord & record, const CurveOf & curveOf ) const {
   return recordText( record, { wallOffset( record ), now(), peaksDir_->peaks( record.id() ), curveOf } );
}

// ---- filing

void Archive::look() {
   if ( runPosted_ )
      return;
   runPosted_ = true;
   scheduler_->post( [self = self_] {
      if ( Archive * archive = *self ) {
         archive->runPosted_ = false;
         archive->run();
      }
   } );
}

void Archive::run() {
   leftOversDel();
   Vel::U32 waiting = 0;
   for ( const auto & [id, record] : historyDir_->recordRange() )
      waiting += record->ended() > 0;
   bool works = true;
   for ( const auto & [id, record] : historyDir_->recordRange() ) {
      if ( record->ended() == 0 )
         continue;
      const Filing filing = works ? file( *record ) : Filing::failed;
      if ( filing == Filing::later )
         return look();
      works = filing == Filing::filed;
      if ( !works && waiting <= mostWaiting )
         continue;
      --waiting;
      becomesSummary( *record );
   }
   if ( works )
      trouble_.reset();
   wakeup_->timeMinIs( works ? Cog::Timer::never : now() + againAfter );
}

Archive::Filing Archive::file( const HistoryRecord & record ) {
   if ( !collect( record ) )
      return Filing::later;
   const auto collected = [this]( const std::string & interface, double, double ) {
      const auto it = curves_.find( interface );
      return it == curves_.end() ? SampleCurve() : it->second;
   };
   const std::string problem = writeWhole( path( record.id() ), textOf( record, collected ) );
   curves_.clear();
   curvesOf_ = 0;
   if ( problem.empty() )
      return Filing::filed;
   trouble_ = Trouble{ trouble_ ? trouble_->since : now(), problem };
   return Filing::failed;
}

bool Archive::collect( const HistoryRecord & record ) {
   if ( !hooks_.curveOf )
      return true;
   if ( curvesOf_ != record.id() )
      curves_.clear();
   curvesOf_ = record.id();
   Vel::U32 read = 0;
   for ( const auto & [id, intf] : record.intfRange() ) {
      const std::string name( id.name() );
      if ( curves_.count( name ) )
         continue;
      if ( read++ == curvesAtOnce )
         return false;
      curves_[name] = curveOf( record, *intf, now(), hooks_.curveOf );
   }
   return true;
}

void Archive::becomesSummary( const HistoryRecord & record ) {
   const Vel::U32 id = record.id();
   summarize( record, record.wallOffset(), *historyDir_->summaryIs( id, record.unitName() ) );
   historyDir_->recordDel( id );
   while ( historyDir_->summarys() > HistoryDir::mostFinished ) {
      const Vel::U32 oldest = *historyDir_->summaryFirst();
      historyDir_->summaryDel( oldest );
      scheduler_->effectIs( [path = path( oldest )] {
         std::error_code ignored;
         std::filesystem::remove( path, ignored );
      } );
   }
}

void Archive::leftOversDel() {
   if ( cleaned_ )
      return;
   cleaned_ = true;
   std::error_code error;
   std::filesystem::create_directory( folder_, error );
   std::vector< std::filesystem::path > leftOvers;
   for ( std::filesystem::directory_iterator it( folder_, error ), end; !error && it != end;
         it.increment( error ) ) {
      const std::string name = it->path().filename();
      const Vel::U32 id = idOf( name );
      const bool unfinished = name.ends_with( unfinishedEnding );
      if ( unfinished || ( id > 0 && !historyDir_->summary( id ) && !historyDir_->record( id ) ) )
         leftOvers.push_back( it->path() );
   }
   for ( const auto & path : leftOvers )
      std::filesystem::remove( path, error );
}

// ---- what there is to see

bool Archive::hasUnit( const std::string & unit ) const {
   for ( const auto & [id, summary] : historyDir_->summaryRange() )
      if ( summary->unitName() == unit )
         return true;
   for ( const auto & [id, record] : historyDir_->recordRange() )
      if ( record->unitName() == unit )
         return true;
   return false;
}

std::string Archive::list( const std::string & unit, std::size_t limit ) const {
   std::map< Vel::U32, Vel::Ptr< const HistorySummary >, std::greater<> > newestFirst;
   for ( const auto & [id, summary] : historyDir_->summaryRange() )
      if ( unit.empty() || summary->unitName() == unit )
         newestFirst.emplace( id, summary );
   for ( const auto & [id, record] : historyDir_->recordRange() )
      if ( unit.empty() || record->unitName() == unit ) {
         auto summary = Vel::make< HistorySummary >( id, record->unitName() );
         summarize( *record, wallOffset( *record ), *summary );
         newestFirst.emplace( id, std::move( summary ) );
      }
   std::vector< Vel::Ptr< const HistorySummary > > list;
   for ( const auto & [id, summary] : newestFirst )
      if ( list.size() < limit )
         list.push_back( summary );
   return summariesText( list );
}

std::string Archive::record( Vel::U32 id ) const {
   if ( const HistoryRecord * const record = historyDir_->record( id ) )
      return textOf( *record, record->intfs() > mostLiveCurves ? CurveOf() : hooks_.curveOf );
   const std::string name = std::to_string( id );
   if ( !historyDir_->summary( id ) )
      throw Api::Error{ Api::ErrorCode::notFound, "there is no maintenance " + name, name };
   const std::optional< std::string > text = readWhole( path( id ) );
   if ( !text || !nlohmann::json::accept( *text ) )
      throw Api::Error{
         Api::ErrorCode::internal,
         "the record of maintenance " + name + ( text ? " is damaged" : " cannot be read" ), path( id ) };
   return *text;
}

} // namespace Agent
