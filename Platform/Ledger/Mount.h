#pragma once

#include "Platform/Ledger/Status.h"

/// Purpose: what a mounter asks the state store for, and what it is told in the end.
namespace Ledger {

/// One path that a mounter wants to use.
///
/// The mode says what the store brings and makes:
///   "r"   read: an entity at this path is of this type; an absent one stays absent and may come later
///   "w"   write: as "r"
///   "wc"  write and create: an absent entity is made by the name of its type
///   "ri"  read an entity whose contents may still be coming: they are no part of completion. Here all
///         contents are at hand, so it is the same as "r".
/// Modes do not restrict the mounter's own writes: it may write what it has mounted for reading.
struct Mount {
   Mount( Vel::String pathIs, Vel::String typeNameIs, Vel::String modeIs )
      : path( std::move( pathIs ) ), typeName( std::move( typeNameIs ) ), mode( std::move( modeIs ) ) {}

   Vel::String path;     ///< as "interface/status/all"
   Vel::String typeName; ///< as "Interface::AllIntfStatusDir"
   Vel::String mode;
};

/// How the mounts of a group went: mountSuccess_, or a text that names each mount that failed, and why.
using MountStatus = Status;
inline const MountStatus mountSuccess_;

} // namespace Ledger
