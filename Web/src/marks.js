// What is marked on curves: what the log tells of a unit or an interface, and what an interface tells by itself. The log
// has one event for what happens alike to very many interfaces at once, which names only some of them.

import { seconds } from './format.js';
import { reasonStanding } from './standing.js';

/** Traffic is back where there should be none. */
const isSpike = ( event ) => /^(spike|violations)(-begin)?$/.test( event.what ?? '' );
/** What somebody should look at. */
export const isAlarm = ( event ) => isSpike( event ) || /failed|refused|^(problem-begin|overrun)$/.test( event.what ?? '' );

const markOf = ( event ) => ( {
   time: seconds( event.time ),
   kind: isSpike( event ) ? 'spike' : 'state',
   label: event.text ?? event.what,
} );

export const unitMarks = ( events, unit ) => events.filter( ( { type, subject } ) => type === 'unit' && subject === unit ).map( markOf );

/** In words, and by which reason it is told as well. */
const states = { 'enter-maint': [ 'watched' ], 'under-maint': [ 'drained', 'drained' ], 'stopped': [ 'stopped', 'stopped' ] };
const stateCode = ( state ) => states[ state ]?.[ 1 ] ?? state;

/** The change that an event tells of, by the name that it has with an interface. */
function codeOf( { what, reason, state } ) {
   switch ( what ) {
   case 'reason': return reason;
   case 'state': return stateCode( state );
   case 'shut': return 'shut';
   case 'spike-begin': return 'spike';
   }
   return null;
}

/** Seconds that the times of one change may differ by; seconds after which it has been told by an event, if it is. */
const slack = 2, late = 90;
/** Changes that are kept. */
const most = 64;

/** What has happened to an interface while it was looked at. */
export class Story {
   constructor( name ) {
      this.name = name;
      this.changes = [];   ///< { time, code, kind, label }, oldest first
   }
   /** As the API gives it. */
   take( { state, reason, 'state-time': time } ) {
      if ( reason )
         this.add( seconds( reason.since ), reason.code, reasonStanding( reason.code ).label );
      if ( states[ state ] && !( reason && Math.abs( seconds( time ) - seconds( reason.since ) ) <= slack ) )
         this.add( seconds( time ), stateCode( state ), states[ state ][ 0 ] );
   }
   add( time, code, label ) {
      if ( time === null || this.has( code, time ) )
         return;
      this.changes.push( { time, code, kind: code === 'spike' ? 'spike' : 'state', label } );
      this.changes.sort( ( a, b ) => a.time - b.time );
      this.changes = this.changes.slice( -most );
   }
   has( code, time ) { return this.changes.some( ( each ) => each.code === code && Math.abs( each.time - time ) <= slack ); }
   /** Whether it is among those that an event tells of; of one that is not named its own words say so. */
   isIn( event ) {
      const { type, subject, what, interfaces, count } = event;
      if ( type !== 'interface' && what !== 'selected' )
         return false;
      if ( subject || !interfaces )
         return subject === this.name;
      return interfaces.includes( this.name ) || ( count > interfaces.length && this.has( codeOf( event ), seconds( event.time ) ) );
   }
   /** What events tell of it, and what else it has told itself. */
   marks( events ) {
      const told = events.filter( ( event ) => this.isIn( event ) );
      const times = told.map( ( event ) => [ codeOf( event ), seconds( event.time ) ] );
      const own = this.changes.filter( ( { code, time } ) =>
         !times.some( ( [ its, at ] ) => its === code && at > time - slack && at < time + late ) );
      return [ ...told.map( markOf ), ...own ].sort( ( a, b ) => a.time - b.time );
   }
}
