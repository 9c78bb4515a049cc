// How an interface, a unit or an event stands: a word, a sign and a level, so that colour is never the only sign.

/** Levels: quiet, work, good, warn, alarm. */
const reasons = {
   'above-threshold': [ 'above threshold', '▲', 'work' ],
   'timing': [ 'timing', '◔', 'work' ],
   'stalled': [ 'stalled', '■', 'warn' ],
   'oscillating': [ 'oscillating', '≈', 'warn' ],
   'starved': [ 'no counters', '?', 'warn' ],
   'drained': [ 'drained', '✓', 'good' ],
   'shut': [ 'shut', '⊘', 'good' ],
   'spike': [ 'spike', '!', 'alarm' ],
   'stopped': [ 'stopped', '–', 'quiet' ],
};
const states = {
   'enter-maint': 'above-threshold',
   'under-maint': 'drained',
   'stopped': 'stopped',
};
const idle = [ 'not monitored', '·', 'quiet' ];
const notShut = [ 'not shut', '!', 'alarm' ];
const down = [ 'link down', '×', 'quiet' ];

const of = ( [ label, sign, level ], code ) => ( { label, sign, level, code } );

/** Of an interface as the API gives it. */
export function interfaceStanding( intf ) {
   if ( intf[ 'shut-problem' ] )
      return of( notShut, 'not-shut' );
   let code = intf.reason?.code ?? ( intf.shut && intf.state ? 'shut' : states[ intf.state ] );
   if ( code && reasons[ code ] )
      return of( reasons[ code ], code );
   return intf[ 'link-state' ] === 'down' ? of( down, 'down' ) : of( idle, 'idle' );
}

/** What the link is, and what we do to it. */
export function linkText( intf ) {
   const state = intf[ 'link-state' ];
   if ( intf[ 'shut-problem' ] )
      return `${state}, could not be shut: ${intf[ 'shut-problem' ]}`;
   return intf.shut ? `${state}, shut by us` : state;
}

/** Of a reason by its name. */
export const reasonStanding = ( code ) => of( reasons[ code ] ?? [ code, '·', 'quiet' ], code );

const unitStates = {
   normal: [ 'normal', '○', 'quiet' ],
   entering: [ 'entering', '▶', 'work' ],
   maintenance: [ 'maintenance', '●', 'good' ],
   exiting: [ 'exiting', '◀', 'work' ],
};
/** Whether it is later than somebody has asked for. */
export const isLate = ( unit ) => Boolean( unit.overdue || ( unit.state === 'entering' && unit.times?.overrun ) );

export function unitStanding( unit ) {
   if ( unit.violating?.length )
      return of( [ `${unit.state}, violated`, '!', 'alarm' ], unit.state );
   if ( isLate( unit ) )
      return of( [ `${unit.state}, overdue`, '!', 'warn' ], unit.state );
   return of( unitStates[ unit.state ] ?? [ unit.state, '·', 'quiet' ], unit.state );
}

const stageStates = {
   pending: [ 'pending', '○', 'quiet' ],
   running: [ 'running', '▶', 'work' ],
   complete: [ 'complete', '✓', 'good' ],
   failed: [ 'failed', '×', 'alarm' ],
   skipped: [ 'skipped', '–', 'quiet' ],
};
export const stageStanding = ( stage ) => of( stageStates[ stage.state ] ?? [ stage.state, '·', 'quiet' ], stage.state );

/** When a link will be shut whatever it carries, in seconds; null: never, or it is already. */
export const isPending = ( intf ) => Boolean( intf.reason?.[ 'shutdown-at' ] ) && !intf.shut;
