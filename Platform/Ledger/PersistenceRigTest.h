#pragma once

#include "Platform/Ledger/StoreWorldTest.h"

#include <gtest/gtest.h>

namespace StoreTest {

/// Purpose: the persistence of a process that has started on empty folders; base of its tests.
struct Persistence : testing::Test, World {
   /// Operations of a commit besides writing what has changed: begin, header, commit.
   static constexpr unsigned overhead = 3;

   Persistence() { expectOk( process->persistence.start() ); }
   static void expectOk( const Ledger::Status & status ) { EXPECT_EQ( "", status.text() ); }
   void committed() { expectOk( commit() ); }
   void restarted() { expectOk( restart() ); }
   Vel::String text() const { return process->text(); }
   /// The operations of one commit, by engine.
   void countFromHere() {
      state.faultDel();
      runtime.faultDel();
   }
   void expectUnchangedByRestart() {
      const Vel::String before = text();
      restarted();
      EXPECT_EQ( before, text() );
   }
};

} // namespace StoreTest
