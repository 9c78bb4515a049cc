#pragma once

#include "Platform/Model/MaintenanceUnit.h"
#include "Platform/Model/Stage.h"

#include <deque>
#include <utility>
#include <vector>

/// Purpose: for tests: what is written about the stages of a unit, in the order in which others are told of it.
namespace Stage {

class StageWrites {
   /// The instances of one stage class.
   struct OfClass {
      struct VelProgressDir final : Vel::ReactorTo< OfClass, ProgressDir > {
         using ReactorTo::ReactorTo;
         void onProgress( const Vel::Name & instance ) override {
            const Progress * const record = entity()->progress( instance );
            sm()->note( record ? "+ " : "- ", instance, record && !record->stage().empty() ? " begun" : "" );
            if ( record )
               sm()->progress.is( Vel::Ptr( record ), sm() ).hasNotificationActiveIs( true );
            else
               sm()->progress.del();
         }
      };
      struct VelProgress final : Vel::ReactorTo< OfClass, Progress > {
         using ReactorTo::ReactorTo;
         void onStageStatus( const Vel::String & stage ) override {
            const Vel::U32 * const status = entity()->stageStatus( stage );
            sm()->note( "status of ", stage, " ", status ? Vel::text( *status ) : "none" );
         }
         void onStage() override { sm()->note( "stage ", entity()->stage() ); }
      };
      struct VelCompletion final : Vel::ReactorTo< OfClass, CompletionStatusDir > {
         using ReactorTo::ReactorTo;
         void onStatus( const Vel::Name & instance ) override {
            sm()->note( "completion status ", entity()->status( instance ) ? "+ " : "- ", instance );
         }
      };
      template < class... Pieces >
      void note( const Pieces &... pieces ) {
         writes->lines_.push_back( Vel::text( name, ": ", pieces... ) );
      }

      StageWrites * writes;
      Vel::String name;
      Vel::Watch< VelProgressDir > dir;
      Vel::Watch< VelProgress > progress; ///< of the last instance that came
      Vel::Watch< VelCompletion > completion;
   };

 public:
   void classIs(
      const Vel::String & name, const Vel::Ptr< ProgressDir > & progressDir,
      const Vel::Ptr< CompletionStatusDir > & completionStatus ) {
      OfClass & ofClass = classes_.emplace_back();
      ofClass.writes = this;
      ofClass.name = name;
      ofClass.dir.is( progressDir, &ofClass ).hasNotificationActiveIs( true );
      ofClass.completion.is( completionStatus, &ofClass ).hasNotificationActiveIs( true );
   }
   void unitIs( const Vel::Ptr< Maintenance::Unit::Status > & unit ) {
      unit_.is( unit, this ).hasNotificationActiveIs( true );
   }
   /// What has been written since the last call.
   std::vector< Vel::String > taken() { return std::exchange( lines_, {} ); }

 private:
   struct VelUnit final : Vel::ReactorTo< StageWrites, Maintenance::Unit::Status > {
      using ReactorTo::ReactorTo;
      void onState() override { note( "state ", entity()->state() ); }
      void onGenId() override { note( "generation ", entity()->genId() ); }
      void onMaintEnterInstanceName() override {
         note( "enter instance \"", entity()->maintEnterInstanceName(), "\"" );
      }
      void onMaintExitInstanceName() override {
         note( "exit instance \"", entity()->maintExitInstanceName(), "\"" );
      }
      template < class... Pieces >
      void note( const Pieces &... pieces ) {
         sm()->lines_.push_back( Vel::text( pieces... ) );
      }
   };

   std::vector< Vel::String > lines_;
   std::deque< OfClass > classes_;
   Vel::Watch< VelUnit > unit_;
};

} // namespace Stage
