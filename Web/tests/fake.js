// An agent that says what a test wants it to say: the page's files from the folder, and answers that are plain values.

import { createServer } from 'node:http';
import { readFile } from 'node:fs/promises';
import { join, dirname } from 'node:path';
import { fileURLToPath } from 'node:url';

const dist = join( dirname( fileURLToPath( import.meta.url ) ), '../dist' );
const types = { html: 'text/html', js: 'text/javascript', css: 'text/css', svg: 'image/svg+xml', txt: 'text/plain' };
// As the agent's own.
export const policy = "default-src 'none'; script-src 'self'; style-src 'self'; connect-src 'self'; img-src 'self'; "
   + "base-uri 'none'; form-action 'none'; frame-ancestors 'none'; require-trusted-types-for 'script'; trusted-types 'none'";

export const iso = ( time ) => new Date( time * 1000 ).toISOString();

/** A unit and an interface with all their keys; `changes` replaces some. */
export const unit = ( name, changes = {} ) => ( {
   name, state: 'normal', with: {}, stage: null, stages: [], generation: 0, since: null, reason: null, by: null, deadline: null,
   overdue: false,
   times: { 'deadline': null, 'deadline-left-seconds': null, 'on-overrun': null, 'overrun': null, 'revert-at': null,
      'revert-left-seconds': null, 'doubt': null },
   interfaces: { total: 0, drained: 0 }, rates: { 'in-bps': 0, 'out-bps': 0 }, violating: [], 'total-violations': 0,
   'settling-since': null, 'not-shut': [], groups: [ 'uplinks' ], sentence: 'normal', 'eta-seconds': null, ...changes,
} );
export const intf = ( name, changes = {} ) => ( {
   name, kind: 'ethernet', units: [ 'u1' ], profile: 'fast', state: null, 'in-bps': null, 'out-bps': null, samples: null,
   'consecutive-drained-samples': null, spike: false, shut: false, 'shut-problem': null,
   'link-state': 'up', drift: null, 'start-time': null,
   'state-time': null, 'last-sample-time': null, reason: null, ...changes,
} );
export const reason = ( code, changes = {} ) => ( {
   code, since: iso( Date.now() / 1000 - 60 ), 'rate-bps': 812000, 'threshold-bps': 100000, 'quiet-seconds': 0,
   'load-interval-seconds': 10, 'eta-seconds': 40, 'shutdown-at': null, trend: 'falling', text: '812 kbit/s, about 40 s', ...changes,
} );

/** A maintenance that is over, of 190 s, with one interface; `words` stand wherever people or commands have their say. */
export const record = ( id, name, words = null, from = 1e9 ) => ( {
   id, unit: name, generation: 1, outcome: words ?? 'completed', began: iso( from ), 'in-maintenance': iso( from + 100 ),
      'exit-began': iso( from + 150 ),
   ended: iso( from + 190 ), by: words ?? 'bob', reason: words ?? 'last year', 'exit-by': words ?? 'eve', 'exit-reason': words,
   times: { 'deadline': null, 'on-overrun': null, 'overrun': null, 'revert-at': null },
   with: words ? { key: words } : {}, 'exit-with': {}, overridden: words ? [ words ] : null,
   counts: { interfaces: 1, drained: 1, forced: 1, spikes: 1 },
   stages: [ { way: 'enter', name: words ?? 'drainwatch', state: 'complete', began: iso( from ), ended: iso( from + 100 ),
      failure: words } ],
   interfaces: [ {
      name: words ?? 'et1', profile: { name: words ?? 'fast', 'threshold-bps': 100000, 'load-interval-seconds': 10, shutdown: true,
         'shutdown-max-delay-seconds': 300 },
      'profile-changed': null, began: iso( from ), drained: iso( from + 40 ), shutdown: 'forced', shut: iso( from + 50 ),
         raised: iso( from + 150 ),
      released: iso( from + 150 ), reasons: [ { time: iso( from ), code: words ?? 'above-threshold', 'rate-bps': 4e8 },
         { time: iso( from + 40 ), code: 'drained', 'rate-bps': null } ],
      'reasons-left-out': 0, 'total-spikes': 1, spikes: [ { began: iso( from + 110 ), ended: iso( from + 115 ), 'peak-bps': 5e7 } ],
      drift: words ? [ { time: iso( from + 60 ), what: words } ] : [], 'drift-left-out': 0,
      'first-in-bps': 4e8, 'first-out-bps': 1e8, 'first-time': iso( from ), 'peak-in-bps': 5e7, 'peak-out-bps': 0,
         'peak-time': iso( from + 110 ),
      curve: { start: iso( from - 60 ), 'step-seconds': 5, 'in-bps': Array.from( { length: 50 }, ( _, i ) => 4e8 * 0.5 ** i ),
         'out-bps': Array( 50 ).fill( null ) },
   } ],
   'interfaces-left-out': 0,
} );

export class Fake {
   constructor() {
      this.units = [];
      this.interfaces = [];
      this.profiles = [ { name: 'fast', 'threshold-bps': 100000, 'load-interval-seconds': 10, shutdown: true,
         'shutdown-max-delay-seconds': 300, default: true } ];
      this.events = [];
      this.maintenances = [];
      this.problems = [];
      this.ahead = 0;              ///< seconds that the agent's clock is ahead of ours
      this.samples = () => null;   ///< of an interface's name: { in, out }, 5 s a step, ending now; undefined: there is none
      this.streams = new Set();
      this.asked = [];             ///< paths with queries
      this.silent = false;         ///< nothing is answered; what is open stays so
      this.streamless = false;     ///< there is no stream, all else is answered
      this.readless = false;       ///< the stream goes on, nothing else is answered
      this.refuse = () => null;    ///< of a path with its query: the status that it is refused with
      this.held = null;            ///< a promise that samples wait for
      this.streamHeld = null;      ///< one that the stream waits for
      this.forgotten = 0;          ///< events up to that number are not kept any more
   }
   get now() { return Date.now() / 1000 + this.ahead; }
   async start( port = 0 ) {
      this.server = createServer( ( request, reply ) => this.answer( request, reply ).catch( () => reply.destroy() ) );
      await new Promise( ( resolve ) => this.server.listen( port, '127.0.0.1', resolve ) );
      this.port = this.server.address().port;
      this.address = `http://127.0.0.1:${this.port}/`;
   }
   /** As if killed: every connection is cut. */
   async stop() {
      const closed = new Promise( ( resolve ) => this.server.close( resolve ) );
      this.server.closeAllConnections();
      this.streams.clear();
      await closed;
   }
   async answer( request, reply ) {
      const url = new URL( request.url, this.address );
      this.asked.push( request.url );
      if ( this.silent || ( this.readless && !/events\?/.test( request.url ) ) )
         return undefined;
      if ( !url.pathname.startsWith( '/api/v1/' ) )
         return this.file( url.pathname === '/' ? '/index.html' : url.pathname, reply );
      const path = url.pathname.slice( 8 ).split( '/' ).map( decodeURIComponent );
      if ( path[ 0 ] === 'events' && !path[ 1 ] && !this.streamless )
         return this.stream( url, reply );
      if ( path[ 0 ] === 'samples' )
         await this.held;
      const refused = this.refuse( path.join( '/' ) + url.search );
      const body = refused ? undefined : this.body( path, url.searchParams );
      reply.writeHead( refused ?? ( body === undefined ? 404 : 200 ), { 'Content-Type': 'application/json' } );
      const where = url.searchParams.getAll( 'interface' ).find( ( name ) => this.samples( name ) === undefined ) ?? request.url;
      reply.end( JSON.stringify( body ?? { error: { code: 'not-found', message: 'there is nothing here', where } } ) );
   }
   body( path, query ) {
      const of = ( name ) => this.interfaces.filter( ( each ) => each.units.includes( name ) );
      switch ( path[ 0 ] ) {
      case 'units': return this.units;
      case 'interfaces': return path[ 1 ] ? this.interfaces.find( ( each ) => each.name === path[ 1 ] ) : of( query.get( 'unit' ) );
      case 'profiles': return this.profiles;
      case 'agent': return { version: '0.1.0', pid: 1, started: iso( 0 ), state: this.problems.length ? 'degraded' : 'ok',
         problems: this.problems,
         switch: 'simulated', clock: iso( this.now ), configuration: {}, plugin: {} };
      case 'events': return path[ 1 ] && { events: this.after( Number( query.get( 'after' ) ?? 0 ) ).slice( -query.get( 'limit' ) ),
         last: this.last };
      case 'history': return path[ 1 ] ? this.maintenances.find( ( each ) => each.id === Number( path[ 1 ] ) ) : this.maintenances;
      case 'samples': {
         const names = query.getAll( 'interface' );
         const length = Math.floor( Number( query.get( 'last' ) ) / 5 );
         // The agent's own limit.
         if ( !names.length || names.length * length > 150000 )
            throw new Error( 'nobody may ask for so much' );
         if ( names.some( ( name ) => this.samples( name ) === undefined ) )
            return undefined;
         const some = ( rates = [] ) => [ ...Array( Math.max( 0, length - rates.length ) ).fill( null ), ...rates.slice( -length ) ];
         return { 'step-seconds': 5, start: iso( this.now - 5 * length ),
            interfaces: Object.fromEntries( names.map( ( name ) => [ name, this.samples( name ) ?? {} ] )
               .map( ( [ name, samples ] ) => [ name, { 'in-bps': some( samples.in ), 'out-bps': some( samples.out ) } ] ) ) };
      }
      }
   }
   after( sequence ) { return this.events.filter( ( event ) => event.sequence > Math.max( sequence, this.forgotten ) ); }
   get last() { return this.events.at( -1 )?.sequence ?? 0; }
   async file( path, reply ) {
      try {
         const data = await readFile( join( dist, path ) );
         reply.writeHead( 200, { 'Content-Type': `${types[ path.split( '.' ).pop() ]}; charset=utf-8`,
            'Content-Security-Policy': policy } );
         reply.end( data );
      } catch {
         reply.writeHead( 404 ).end();
      }
   }
   async stream( url, reply ) {
      await this.streamHeld;
      this.streams.add( reply );
      reply.on( 'close', () => this.streams.delete( reply ) );
      reply.writeHead( 200, { 'Content-Type': 'text/event-stream' } );
      reply.write( ': here\n\n' );
      const after = url.searchParams.get( 'after' );
      if ( after === null )
         return;
      const other = after > this.last;
      const missed = other ? 0 : Math.max( this.forgotten - after, 0 );
      const dropped = JSON.stringify( { dropped: missed, next: this.forgotten + 1 } );
      if ( other || missed )
         reply.write( `id: ${this.forgotten}\nevent: dropped\ndata: ${dropped}\n\n` );
      for ( const event of this.after( other ? 0 : Number( after ) ) )
         reply.write( text( event ) );
   }
   /** Something happens; `more` are its other members. */
   event( type, subject, what, words = what, more = {} ) {
      const event = { sequence: this.last + 1, time: iso( this.now ), type, subject, what, units: [ 'u1' ],
         text: words, ...more };
      this.events.push( event );
      for ( const reply of this.streams )
         reply.write( text( event ) );
   }
   rates( interfaces ) {
      this.say( 'rates', { time: iso( this.now ), interfaces } );
   }
   say( type, data ) {
      for ( const reply of this.streams )
         reply.write( `event: ${type}\ndata: ${JSON.stringify( data )}\n\n` );
   }
}

const text = ( event ) => `id: ${event.sequence}\nevent: ${event.type}\ndata: ${JSON.stringify( event )}\n\n`;
