#include "Platform/Maintenance/PluginContext.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <unistd.h>

namespace MaintenanceTest {

class Dumper final : public Maintenance::DumpPluginInfo {
   VEL_ENTITY( Dumper );
   Dumper( const Vel::String & name, const Vel::String & text ) : DumpPluginInfo( name ), text_( text ) {}
   void dump( unsigned fd ) const override {
      if ( write( static_cast< int >( fd ), text_.data(), text_.size() ) < 0 )
         ADD_FAILURE() << "write failed";
   }

 private:
   Vel::String text_;
};

/// What a plug-in puts into the context's directory: it holds the context.
class Worker final : public Vel::Entity {
   VEL_ENTITY( Worker );
   explicit Worker( const Vel::String & ) {}
   VEL_ATTR( Vel::Ptr< Maintenance::PluginContext >, context, onContext );
};

} // namespace MaintenanceTest

namespace {

using MaintenanceTest::Dumper;
using MaintenanceTest::Worker;

struct PluginContext : testing::Test {
   Vel::Ptr< Ledger::EntityManager > em =
      Vel::make< Ledger::EntityManager >( []( std::function< void() > ) {} );
   Vel::Ptr< VelPool::EntityManager > pool = Vel::make< VelPool::EntityManager >();
   Vel::Ptr< Maintenance::PluginContext > context = Vel::make< Maintenance::PluginContext >( em, pool );

   Vel::String dumped() const {
      std::FILE * file = std::tmpfile();
      context->dump( static_cast< unsigned >( fileno( file ) ) );
      std::rewind( file );
      char buffer[100];
      const Vel::String result( buffer, std::fread( buffer, 1, sizeof buffer, file ) );
      std::fclose( file );
      return result;
   }
};

TEST_F( PluginContext, holdsWhatAPluginNeeds ) {
   EXPECT_EQ( em.get(), context->entityManager().get() );
   EXPECT_EQ( pool.get(), context->velPoolEntityManager().get() );
   ASSERT_TRUE( context->entityDir() );
   EXPECT_EQ( 0u, context->entityDir()->entrys() );
}

TEST_F( PluginContext, needsStoreAndPool ) {
   EXPECT_THROW( Vel::make< Maintenance::PluginContext >( nullptr, pool ), Vel::RangeError );
   EXPECT_THROW( Vel::make< Maintenance::PluginContext >( em, nullptr ), Vel::RangeError );
}

TEST_F( PluginContext, dumpsInTheOrderOfRegistration ) {
   const auto b = Vel::make< Dumper >( "b", "1;" );
   const auto a = Vel::make< Dumper >( "a", "2;" );
   context->dumpPluginInfoIs( b );
   context->dumpPluginInfoIs( a );
   context->dumpPluginInfoIs( b );
   EXPECT_EQ( "1;2;", dumped() );
}

TEST_F( PluginContext, forgetsADumperThatIsDestroyed ) {
   auto dumper = Vel::make< Dumper >( "d", "1;" );
   context->dumpPluginInfoIs( dumper );
   EXPECT_EQ( 1u, dumper->getRefCount() );
   dumper = nullptr;
   EXPECT_FALSE( context->dumpPluginInfo( "d" ) );
   EXPECT_EQ( "", dumped() );
}

TEST_F( PluginContext, forgetsADumperOnRequest ) {
   const auto dumper = Vel::make< Dumper >( "d", "1;" );
   context->dumpPluginInfoIs( dumper );
   EXPECT_EQ( dumper.get(), context->dumpPluginInfo( "d" ).get() );
   EXPECT_TRUE( context->dumpPluginInfoDel( "d" ) );
   EXPECT_FALSE( context->dumpPluginInfoDel( "d" ) );
   EXPECT_EQ( "", dumped() );
}

TEST_F( PluginContext, replacesADumperOfTheSameName ) {
   const auto old = Vel::make< Dumper >( "d", "old;" );
   const auto fresh = Vel::make< Dumper >( "d", "fresh;" );
   context->dumpPluginInfoIs( old );
   context->dumpPluginInfoIs( fresh );
   EXPECT_EQ( "fresh;", dumped() );
}

TEST_F( PluginContext, aDumperThatWasReplacedDoesNotTakeItsSuccessorAlong ) {
   auto old = Vel::make< Dumper >( "d", "old;" );
   const auto fresh = Vel::make< Dumper >( "d", "fresh;" );
   context->dumpPluginInfoIs( old );
   context->dumpPluginInfoIs( fresh );
   old = nullptr;
   EXPECT_EQ( "fresh;", dumped() );
}

TEST_F( PluginContext, aDumperThatMovesToAnotherContextLeavesTheFirst ) {
   const auto other = Vel::make< Maintenance::PluginContext >( em, pool );
   const auto dumper = Vel::make< Dumper >( "d", "1;" );
   other->dumpPluginInfoIs( dumper );
   context->dumpPluginInfoIs( dumper );
   EXPECT_FALSE( other->dumpPluginInfo( "d" ) );
   EXPECT_EQ( "1;", dumped() );
}

TEST_F( PluginContext, aDumperMayOutliveTheContext ) {
   auto dumper = Vel::make< Dumper >( "d", "1;" );
   context->dumpPluginInfoIs( dumper );
   context = nullptr;
   dumper = nullptr;
}

TEST_F( PluginContext, refusesANullDumper ) {
   EXPECT_THROW( context->dumpPluginInfoIs( nullptr ), Vel::RangeError );
}

TEST_F( PluginContext, deletingTheEntriesFirstReleasesEverything ) {
   Vel::TypeRegistration< Worker > workerType;
   const auto worker =
      Vel::ptrCast< Worker >( context->entityDir()->entryIs( "w", "MaintenanceTest::Worker" ) );
   worker->contextIs( context );
   EXPECT_EQ( 2u, context->getRefCount() );
   context->entityDir()->entryDel( "w" );
   worker->contextIs( nullptr );
   EXPECT_EQ( 1u, context->getRefCount() );
   EXPECT_EQ( 1u, worker->getRefCount() );
}

} // namespace
