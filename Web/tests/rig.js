// A browser and a fake agent for each test of a file, with a unit under way.

import assert from 'node:assert/strict';
import { after, afterEach, before, beforeEach } from 'node:test';
import { Fake, intf, iso, reason, record, unit } from './fake.js';
import { launch, open } from './browser.js';

const drain = ( from ) => Array.from( { length: 60 }, ( _, i ) => from * 0.5 ** ( i / 4 ) );

/** The fake agent of the test that runs now, and its pages. */
export const rig = {
   fake: null,
   browser: null,
   opened: [],
   /** A page at that path; `clock`: its time goes on by page.clock. */
   async show( path = '', { clock = false, ...options } = {} ) {
      const opened = await open( rig.browser, rig.fake.address + path, options,
         async ( page ) => clock && page.clock.install() );
      rig.opened.push( opened );
      return opened.page;
   },
};
export const text = ( page, selector ) => page.locator( selector ).first().innerText();
export const go = ( page, path ) => page.evaluate( ( hash ) => { location.hash = hash; }, `#/${path}` );

before( async () => { rig.browser = await launch(); } );
after( async () => { await rig.browser.close(); } );
beforeEach( async () => {
   rig.opened = [];
   const fake = rig.fake = new Fake();
   fake.units = [
      unit( 'u1', { state: 'entering', stage: 'drainwatch', since: iso( Date.now() / 1000 - 60 ), reason: 'replace the line card',
         by: 'ann',
         interfaces: { total: 3, drained: 1 }, rates: { 'in-bps': 812000, 'out-bps': 1000 },
         stages: [ { name: 'drainwatch', state: 'running', since: iso( 0 ), text: 'runs', failure: null } ],
         sentence: '1 of 3 drained; et2 812 kbit/s, about 40 s; et3 stalled at 310 kbit/s since 14:02' } ),
      unit( 'u2' ),
   ];
   fake.interfaces = [
      intf( 'et1', { state: 'under-maint', 'in-bps': 0, 'out-bps': 0, reason: reason( 'drained', { text: 'drained' } ) } ),
      intf( 'et2', { state: 'enter-maint', 'in-bps': 812000, 'out-bps': 1000, reason: reason( 'above-threshold' ) } ),
      intf( 'et3', { state: 'enter-maint', 'in-bps': 310000, 'out-bps': 1000,
         reason: reason( 'stalled', { text: 'stalled at 310 kbit/s since 14:02', 'shutdown-at': iso( Date.now() / 1000 + 90 ) } ) } ),
   ];
   fake.samples = () => ( { in: drain( 4e8 ), out: drain( 1e8 ) } );
   fake.event( 'unit', 'u1', 'entering', 'u1 is entering maintenance' );
   fake.maintenances = [ record( 7, 'u1' ) ];
   await fake.start();
} );
afterEach( async () => {
   for ( const page of rig.opened )
      await page.close();
   await rig.fake.stop().catch( () => {} );
   assert.deepEqual( rig.opened.flatMap( ( page ) => page.wrong ), [] );
} );
