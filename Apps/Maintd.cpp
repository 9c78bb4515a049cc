#include "Apps/Maintd.h"

#include "Agent/Commands/RealChildren.h"
#include "Agent/Control/AccountName.h"
#include "Apps/MaintdEntities.h"
#include "Apps/MaintdViews.h"
#include "Platform/FastLog/FastLog.h"

#include <spdlog/spdlog.h>

#include <unistd.h>

#include <array>
#include <climits>
#include <csignal>
#include <cstdio>

namespace Apps {

namespace {

constexpr const char * pluginName = "DrainWatchPlugin";
constexpr const char * pluginFile = "libDrainWatchPlugin.so";
constexpr const char * pluginEntry = "drainWatchPlugin";

const Vel::Entity * pointee( const Vel::Entity * entity, const char * attribute ) {
   const Vel::AttributeInfo * info = entity ? entity->typeInfo().attribute( attribute ) : nullptr;
   return info && info->entity ? info->entity( const_cast< Vel::Entity & >( *entity ) ) : nullptr;
}

} // namespace

Maintd::Maintd( MaintdOptions options, MaintdWorld world )
   : options_( std::move( options ) ), world_( std::move( world ) ) {
   if ( options_.socket.empty() )
      options_.socket = options_.runtimeDir + "/control.sock";
}

Maintd::~Maintd() {
   FastLog::timeFrom( nullptr );
   FastLog::memoryIs( fastLogBytes );
   if ( world_.switch_ )
      world_.switch_->stop();
   if ( context_ )
      context_->entityDir()->entryDelAll();
   if ( plugins_ )
      plugins_->close();
}

// ---- start

std::string Maintd::start() {
   for ( const auto step :
         { &Maintd::openStore, &Maintd::readConfiguration, &Maintd::makeClock, &Maintd::makeSwitch } )
      if ( const std::string problem = ( this->*step )(); !problem.empty() )
         return problem;
   makeAgent();
   const DataPlane::Outcome outcome = executor_->start();
   if ( !outcome.ok() )
      return "switch: " + outcome.text();
   apply( configuration_ );
   times_->start();
   // Without the plug-in no stage goes on, and still nothing may run on that nobody watches.
   loop_->post( [this] { commands_->endRemnants(); } );
   if ( !executor_->countersFailedSince() )
      loadPlugin();
   views_->events.started( options_.version );
   if ( const std::string problem = listen(); !problem.empty() )
      return problem;
   if ( world_.notify )
      world_.notify->ready( *loop_, [this] { return statusText(); } );
   return "";
}

void Maintd::makeAgent() {
   Entities & e = *entities_;
   membership_ = std::make_unique< Agent::Membership >( Agent::Membership::Model{
      e.intfProfileStatusDir, e.defaultIntfProfile, e.intfToGroupDir, e.intfGroupStatusDir,
      e.groupToUnitDir } );
   executor_ = std::make_unique< Agent::Executor >(
      loop_, wheel_, world_.switch_,
      Agent::Executor::Model{ e.allIntfStatusDir, e.lagConfig, e.vlanStatusDir, e.cause, e.journal, e.pool },
      Agent::Executor::Hooks{
         [this]( const Wire::IntfId & intf ) { membership_->intfIs( intf ); },
         [this]( const Wire::IntfId & intf ) { membership_->intfDel( intf ); },
         // As long as no configuration is applied, nobody can tell that all units of an interface are normal.
         [this, &e] { return !applied_ || e.isAnyUnderWay(); },
         [this, &e]( const Wire::IntfId & intf ) { return !applied_ || e.isUnderWay( intf ); },
         [&e]( const Wire::IntfId & intf ) { return e.monIntfStatusDir->monIntfStatus( intf ) != nullptr; },
         [this]( const Vel::String & line ) {
            spdlog::warn( "{}", line );
            views_->events.driftChanged();
         },
         [this]( std::function< void() > call ) { commits_->whenKept( std::move( call ) ); } } );
   plugins_ = std::make_unique< Agent::PluginLibraries >( Maintenance::DefaultPluginLoader() );
   makeStages();
   makeTimes();
   loop_->timersMayRunIs( [this] {
      const bool fresh = executor_->countersFresh();
      // What runs and what is waited for by the clock is not sampled: limits hold all the same.
      if ( !fresh ) {
         commands_->handleDue();
         times_->handleDue();
         views_->hooks.handleDue();
      }
      return fresh;
   } );
   // A monitor begins with what the ports have carried by then: an interface may join when none has been sampled for
   // hours. None begins while all units are normal, and then a link that flaps need not cost a read of all counters.
   loop_->beforeTasksIs( [this] {
      if ( entities_->isAnyUnderWay() )
         executor_->countersFresh();
   } );
   views_ = std::make_unique< Views >( *this );
   makePlanner();
   api_ = std::make_unique< Agent::ControlApi >(
      Agent::ControlModel{
         e.unitStatusDir, e.unitRunDir, e.monIntfStatusDir, e.allIntfStatusDir, e.intfProfileStatusDir,
         e.defaultIntfProfile, e.intfToGroupDir, e.intfGroupStatusDir, e.groupToUnitDir, e.cause, e.journal,
         e.eventLog, e.insightDir, e.operationDir, e.unitTimesDir },
      commands() );
   views_->samples.whenTicked( [this] { api_->eventStreams().ratesHaveChanged(); } );
   server_ = std::make_unique< Agent::HttpServer >(
      loop_, wheel_,
      [this]( const Agent::HttpRequest & request, Agent::HttpServer::Answer answer ) {
         api_->handle( request, std::move( answer ) );
      },
      Agent::ControlApi::refusal );
   server_->uncommittedWhile( [this] { return uncommitted_ > 0; } );
}

void Maintd::makeStages() {
   Entities & e = *entities_;
   stages_ = std::make_unique< Agent::Stages >(
      loop_, wheel_,
      Agent::Stages::Model{
         e.unitStatusDir,
         e.unitRunDir,
         { e.enter.progressDir, e.enter.completionStatus, e.enter.agentStatus, e.enter.commandStatus },
         { e.exit.progressDir, e.exit.completionStatus, e.exit.agentStatus, e.exit.commandStatus },
         e.groupToUnitDir,
         e.intfGroupStatusDir,
         e.monIntfStatusDir } );
   operations_ = std::make_unique< Agent::Operations >(
      Agent::Operations::Model{ e.unitStatusDir, e.unitRunDir, e.operationDir },
      [this] { return wallTime( now() ); } );
   if ( !world_.children ) {
      children_ = std::make_unique< Agent::RealChildren >( loop_ );
      world_.children = children_.get();
   }
   commands_ = std::make_unique< Agent::Commands >(
      loop_, wheel_, *world_.children,
      Agent::Commands::Model{
         e.unitStatusDir,
         e.unitRunDir,
         e.unitCommandsDir,
         { e.enter.progressDir, e.enter.completionStatus, e.enter.commandStatus },
         { e.exit.progressDir, e.exit.completionStatus, e.exit.commandStatus } },
      Agent::Commands::Hooks{
         [this]( const Vel::String & unit, const Vel::String & reason ) { takeBack( unit, reason, reason ); },
         [this] { stages_->look(); },
         [this]( const Vel::String & unit ) { return api_->interfacesOf( unit ); },
         []( const std::string & line ) { spdlog::info( "{}", line ); },
         [this] { return commits_->failedSince() == 0; } } );
   stages_->uncountedIs(
      [this]( const Wire::IntfId & intf ) { return !executor_->uncounted( intf ).empty(); } );
   stages_->holdIs( [this] { return hold(); } );
   stages_->stageCheckIs( [this]( const Vel::String & stage ) {
      return stage == Config::drainwatchStage ? plugins_->problem( pluginName ) : commands_->check( stage );
   } );
   stages_->entersIs( [this]( const Vel::String & unit, const Agent::Stages::Lists & lists ) {
      std::vector< Vel::String > both = lists.enter;
      both.insert( both.end(), lists.exit.begin(), lists.exit.end() );
      commands_->unitEnters( unit, both );
   } );
   stages_->comesBackIs( [this]( const Wire::IntfId & intf ) { return executor_->comesBack( intf ); } );
   stages_->goesOnWithoutIs( [this]( const Vel::String & unit, const Agent::Stages::Links & links ) {
      std::set< std::string > names;
      for ( const Wire::IntfId & intf : links )
         names.emplace( intf.name() );
      views_->events.linksLate( unit, names );
   } );
   stages_->busyIs( [this]( const Vel::String & unit ) { return commands_->busy( unit ); } );
}

void Maintd::loadPluginWhenThereAreCounters() {
   if ( pluginAsked_ || executor_->countersFailedSince() )
      return;
   pluginAsked_ = true;
   loop_->post( [this] { loadPlugin(); } );
}

void Maintd::loadPlugin() {
   pluginAsked_ = true;
   context_ = Vel::make< Maintenance::PluginContext >( entityManager_, entities_->pool );
   plugins_->load( pluginName, options_.pluginDir + "/" + pluginFile, context_.get() );
   plugins_->loadOthers( options_.pluginDir, pluginFile, context_.get() );
}

/// What browsers may ask the web address for.
void Maintd::serveNames() {
   std::set< std::string > names = configuration_.webNames;
   if ( configuration_.web )
      names.insert( configuration_.web->host );
   std::array< char, HOST_NAME_MAX + 1 > own{};
   if ( gethostname( own.data(), own.size() - 1 ) != 0 )
      own[0] = '\0';
   server_->webNamesAre( { own.data(), names, Agent::HostNames::searchedDomains() } );
}

std::string Maintd::listen() {
   if ( const auto problem = server_->listenLocal( options_.socket ) )
      return *problem;
   serveNames();
   if ( configuration_.web ) {
      webTick_.is( wheel_, this ).hasNotificationActiveIs( true );
      webTick();
   }
   return "";
}

/// Nothing that is decided depends on the page: while its address is taken, or not there yet, it is tried again.
void Maintd::webTick() {
   const auto problem = server_->listenWeb( configuration_.web->host, configuration_.web->port );
   if ( problem && webProblem_.empty() )
      spdlog::warn( "{}; it is tried again", *problem );
   webProblem_ = problem.value_or( "" );
   webTick_->timeMinIs( problem ? now() + webRetryAfter : Cog::Timer::never );
}

// ---- running

void Maintd::run() { loop_->run(); }

void Maintd::handleSignal( const Cog::Signals::Signal & signal ) {
   if ( signal.number == SIGHUP ) {
      const std::string by = signal.sender ? Agent::accountName( *signal.sender ) : "maintd";
      const auto result = reload( { "it was told so by a signal", by, std::nullopt } );
      if ( result.error )
         spdlog::error( "{}: {}", options_.config, result.error->message );
      // That the file is taken is logged as an event, with the first change.
      const std::vector< std::string > & lines = result.error ? configurationErrors_ : result.changes;
      if ( result.error || lines.size() > 1 )
         for ( const std::string & line : lines )
            spdlog::info( "{}", line );
      return;
   }
   if ( world_.notify )
      world_.notify->stopping();
   // What is published, shut and under way stays as it is for the next start, so no destructor may run.
   times_->stopped();
   views_->stopped();
   const std::string problem = commits_->commitAtEnd();
   if ( problem.empty() ) {
      api_->eventStreams().end();
      server_->flushStreams();
   } else
      spdlog::error( "what happened last, and that the agent has ended, is not stored: {}", problem );
   unlink( options_.socket.c_str() );
   std::fflush( nullptr );
   _exit( problem.empty() ? 0 : 1 );
}

bool Maintd::commit() {
   loadPluginWhenThereAreCounters();
   resumeWhenTheRootIsThere();
   executor_->turnEnds();
   stages_->turnEnds();
   operations_->look();
   views_->turnEnds();
   answerAdvances();
   return commits_->commit();
}

const Vel::Entity * Maintd::root() const {
   return context_ ? pointee( context_->entityDir()->entry( pluginEntry ), "drainWatchSm" ) : nullptr;
}

void Maintd::resumeWhenTheRootIsThere() {
   if ( resumed_ || !root() )
      return;
   resumed_ = true;
   executor_->orphansDel( [this]( const Wire::IntfId & intf ) {
      return entities_->monIntfStatusDir->monIntfStatus( intf ) != nullptr;
   } );
   commands_->resume();
   stages_->resume();
}

std::optional< Api::Error > Maintd::hold() const {
   for ( const Agent::Problem & problem : problems() )
      if (
         problem.what == "store" || problem.what == "counters" ||
         ( problem.what == "switch" && executor_->switchDegraded() ) )
         return Api::Error{
            Api::ErrorCode::unavailable, "the agent is degraded: " + problem.text, problem.what };
   return std::nullopt;
}

} // namespace Apps
