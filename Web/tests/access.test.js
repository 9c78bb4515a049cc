// That the page can be read without eyes, in dark and in light, also when something is wrong and when all is open.

import assert from 'node:assert/strict';
import { describe, test } from 'node:test';
import { axe, hide, soon } from './browser.js';
import { iso, unit } from './fake.js';
import { rig, text } from './rig.js';

/** What there is to see on some views, once it is there. */
const views = { '': '.card .matrix li', 'unit/u1': '.panel canvas', 'interface/et2': '.panel canvas', 'events': 'td',
   'history/7': '.panel canvas' };

const show = async ( path, options = {} ) => {
   const page = await rig.show( `#/${path}`, options );
   await page.locator( views[ path ] ).first().waitFor();
   return page;
};
const check = async ( page, words ) => {
   assert.deepEqual( await axe( page ), [], words );
   await page.emulateMedia( { colorScheme: 'dark' } );
   assert.deepEqual( await axe( page, [ 'color-contrast' ] ), [], `${words}, dark` );
};

describe( 'everything can be read', () => {
   test( 'while the agent is gone', async () => {
      const pages = [];
      for ( const path of [ '', 'unit/u1', 'history/7' ] ) {
         const page = await show( path );
         await page.locator( '.link.good' ).waitFor();
         pages.push( page );
      }
      await rig.fake.stop();
      for ( const page of pages ) {
         await page.locator( '.banner.stale' ).waitFor();
         assert.match( await text( page, '.link' ), /stale since/ );
         await check( page, page.url() );
      }
   } );
   test( 'while there is no stream', async () => {
      rig.fake.streamless = true;
      for ( const path of [ '', 'unit/u1' ] ) {
         const page = await show( path );
         await soon( async () => assert.match( await text( page, '.link' ), /polling/ ) );
         await check( page, path );
      }
   } );
   test( 'while reads are not answered', async () => {
      const page = await show( 'unit/u1', { clock: true } );
      await page.locator( '.link.good' ).waitFor();
      rig.fake.readless = true;
      for ( let time = 0; time < 36; time += 4 ) {
         rig.fake.rates( {} );
         await page.clock.runFor( 4000 );
      }
      await page.locator( '.banner.late' ).waitFor();
      await check( page, 'late' );
   } );
   test( 'with what is wrong with the agent, and with what it does not give', async () => {
      rig.fake.problems = [ { what: 'store', since: iso( 1 ), text: 'the disk is full' } ];
      rig.fake.refuse = ( path ) => ( /^samples|^history/.test( path ) ? 500 : null );
      rig.fake.units[ 0 ] = { ...rig.fake.units[ 0 ], violating: [ 'et3' ], stages: [ { name: 'steer', state: 'failed', since: null,
         text: 'has failed', failure: 'exit status 1' } ] };
      const page = await show( 'unit/u1' );
      await soon( async () => assert.match( await text( page, '.banner.problems' ), /store: the disk is full[^]*no curves/ ) );
      await page.locator( '.violations' ).waitFor();
      await check( page, 'problems' );
   } );
   test( 'with all details open', async () => {
      for ( const path of [ 'interface/et2', 'history/7' ] ) {
         const page = await show( path );
         await page.locator( 'summary' ).click();
         await page.locator( 'details[open] tr, details[open] li' ).nth( 2 ).waitFor();
         await check( page, path );
      }
   } );
   test( 'with more units under way than are looked at closely', async () => {
      const states = [ 'entering', 'maintenance', 'exiting' ];
      rig.fake.units = Array.from( { length: 15 }, ( _, i ) => unit( `a${10 + i}`, { state: states[ i % 3 ],
         overdue: i === 3, violating: i === 4 ? [ 'et1' ] : [] } ) );
      const page = await rig.show();
      await page.getByRole( 'table', { name: 'and 3 more' } ).waitFor();
      await check( page, 'many' );
   } );
   test( 'with events that are missing', async () => {
      const page = await show( 'events' );
      await page.locator( '.link.good' ).waitFor();
      await hide( page, true );
      for ( let n = 2; n <= 60; ++n )
         rig.fake.event( 'unit', 'u2', n === 59 ? 'stage-failed' : 'stage', `number ${n}.` );
      rig.fake.forgotten = 43;
      await hide( page, false );
      await page.locator( 'tr.missed' ).waitFor();
      await page.locator( 'tr.alarm' ).waitFor();
      await check( page, 'missed' );
   } );
} );
