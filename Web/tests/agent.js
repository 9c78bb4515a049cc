// A real agent with a simulated switch, for a test: its folder, its web address, and the way to drive it.

import { execFile, spawn } from 'node:child_process';
import { mkdtempSync, readFileSync, rmSync, writeFileSync } from 'node:fs';
import { request } from 'node:http';
import { createServer } from 'node:net';
import { tmpdir } from 'node:os';
import { join } from 'node:path';
import { promisify } from 'node:util';
import { soon } from './browser.js';

const build = process.env.MAINT_BUILD;

/** A port that nobody listens on now. */
async function freePort() {
   const server = createServer();
   await new Promise( ( resolve ) => server.listen( 0, '127.0.0.1', resolve ) );
   const { port } = server.address();
   await new Promise( ( resolve ) => server.close( resolve ) );
   return port;
}

export class Agent {
   /** `configuration( web )` gives the file's text with that address to listen on. */
   static async start( configuration ) {
      const agent = new Agent();
      agent.folder = mkdtempSync( join( tmpdir(), 'agent-' ) );
      const web = `127.0.0.1:${await freePort()}`;
      agent.address = `http://${web}/`;
      writeFileSync( join( agent.folder, 'maintd.yaml' ), configuration( web ) );
      await agent.run();
      return agent;
   }
   async run() {
      const { folder } = this;
      const at = ( name ) => join( folder, name );
      this.output = '';
      const child = spawn( join( build, 'bin/maintd' ), [ '--foreground', '--config', at( 'maintd.yaml' ), '--state-dir', at( 'state' ),
         '--runtime-dir', at( 'run' ), '--socket', at( 'control.sock' ), '--plugin-dir', join( build, 'lib' ) ],
            { stdio: [ 'ignore', 'pipe', 'pipe' ] } );
      for ( const stream of [ child.stdout, child.stderr ] )
         stream.on( 'data', ( data ) => { this.output += data; } );
      this.child = child;
      this.ended = new Promise( ( resolve ) => child.on( 'exit', ( code, signal ) => resolve( this.end = signal ?? code ) ) );
      await soon( async () => {
         if ( this.end !== undefined )
            throw new Error( `the agent has ended: ${this.end}\n${this.output}` );
         await this.get( 'units' );
      } );
   }
   async kill( signal = 'SIGKILL' ) {
      this.child.kill( signal );
      await this.ended;
      this.end = undefined;
   }
   async stop() {
      if ( this.end === undefined )
         await this.kill( 'SIGTERM' );
      rmSync( this.folder, { recursive: true } );
   }
   ask( method, path, body ) {
      return new Promise( ( resolve, reject ) => {
         const asked = request( { socketPath: join( this.folder, 'control.sock' ), method, path: `/api/v1/${path}` }, ( reply ) => {
            let text = '';
            reply.on( 'data', ( data ) => { text += data; } );
            reply.on( 'end', () => {
               if ( reply.statusCode < 300 )
                  resolve( JSON.parse( text ) );
               else
                  reject( new Error( `${path}: ${reply.statusCode} ${text}` ) );
            } );
         } );
         asked.on( 'error', reject );
         asked.end( body === undefined ? undefined : JSON.stringify( body ) );
      } );
   }
   get( path ) { return this.ask( 'GET', path ); }
   post( path, body = {} ) { return this.ask( 'POST', path, body ); }
   /** What the command says of it. */
   async command( ...args ) {
      const socket = join( this.folder, 'control.sock' );
      return ( await promisify( execFile )( join( build, 'bin/maintctl' ), [ '--socket', socket, ...args ] ) ).stdout;
   }
   advance( seconds ) { return this.post( 'simulated/advance', { seconds } ); }
   /** Lets the agent's time pass, a sample at a time, until the unit is in that state. */
   async until( unit, state, most = 40 ) {
      for ( let n = 0; n < most; ++n ) {
         if ( ( await this.get( `units/${unit}` ) ).state === state )
            return;
         await this.advance( 5 );
      }
      throw new Error( `${unit} is not in ${state} after ${5 * most} s` );
   }
}

/** The configuration of a unit with two hundred interfaces whose traffic fades, each at a time of its own. */
export function twoHundred( web ) {
   const names = Array.from( { length: 200 }, ( _, i ) => `et${i + 1}` );
   const fading = ( name, i ) => `    ${name}: {traffic: [{for: ${1 + i % 60}s, in: 400Mbps, out: 380Mbps}, {ramp: 30s, to: 0bps}]}`;
   return `
version: 1
switch: simulated
listen: {web: "${web}"}
profiles: {fast: {threshold: 100kbps, load-interval: 10s}}
default-profile: fast
groups: {all: {interfaces: [${names.join( ', ' )}]}}
units: {spine-a: {groups: [all]}}
simulated:
  clock: virtual
  ports:
${names.map( fading ).join( '\n' )}
`;
}
