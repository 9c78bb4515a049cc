// Makes the pictures of the README anew: node Web/tests/screenshots.js BUILD-FOLDER
// A drain on the simulated switch, in virtual time and with fixed traffic, so that each run gives the same story.

import { mkdirSync } from 'node:fs';
import { dirname, join, resolve } from 'node:path';
import { fileURLToPath } from 'node:url';

process.env.MAINT_BUILD = resolve( process.argv[ 2 ] ?? 'build/release' );
const { Agent } = await import( './agent.js' );
const { launch, open, soon } = await import( './browser.js' );

const to = join( dirname( fileURLToPath( import.meta.url ) ), '../../docs/pictures' );

/** Steady for a while, then falling by half each `half` seconds: a ramp a halving. */
const fading = ( steady, rate, half, floor = 0 ) => {
   const parts = [ `{for: ${steady}s, in: ${rate}kbps, out: ${Math.round( rate * 0.72 )}kbps}` ];
   for ( let now = rate / 2; now >= Math.max( floor, 4 ); now /= 2 )
      parts.push( `{ramp: ${half}s, in: ${Math.round( now )}kbps, out: ${Math.round( now * 0.72 )}kbps}` );
   parts.push( floor ? `{for: 24h, in: ${floor}kbps, out: ${Math.round( floor / 9 )}kbps}` : '{ramp: 10s, to: 0bps}' );
   return `{traffic: [${parts.join( ', ' )}]}`;
};

const agent = await Agent.start( ( web ) => `
version: 1
switch: simulated
listen: {web: "${web}"}
settle: 10s
profiles:
  fast:  {threshold: 100kbps, load-interval: 20s, shutdown: true, shutdown-max-delay: 6m}
  watch: {threshold: 1Mbps, load-interval: 30s}
default-profile: fast
groups:
  uplinks: {interfaces: [et1, et2, et3, et4, et5, bond0]}
  tenants: {vlans: [10], profile: watch}
  others:  {interfaces: [et6]}
units:
  spine-a: {groups: [uplinks, tenants]}
  spine-b: {groups: [others]}
simulated:
  clock: virtual
  ports:
    et1: ${fading( 70, 410000, 7 )}
    et2: ${fading( 75, 380000, 8 )}
    et3: ${fading( 80, 400000, 17 )}
    et4: ${fading( 72, 95000, 9 )}
    et5: ${fading( 78, 240000, 12 )}
    et6: {traffic: [{for: 24h, in: 120Mbps, out: 90Mbps}]}
    et7: ${fading( 70, 120000, 9, 155 )}
    et8: ${fading( 72, 130000, 9, 155 )}
    et9: ${fading( 75, 60000, 8 )}
  port-channels: {bond0: [et7, et8]}
  vlans:
    10: {name: vlan10, members: [et9]}
` );
const browser = await launch();
try {
   mkdirSync( to, { recursive: true } );
   for ( let time = 0; time < 60; time += 5 )
      await agent.advance( 5 );
   await agent.post( 'units/spine-a/enter', { reason: 'replace the line card' } );
   for ( let time = 0; time < 205; time += 5 )
      await agent.advance( 5 );
   for ( const colorScheme of [ 'light', 'dark' ] ) {
      const { page, context, wrong } = await open( browser, `${agent.address}#/unit/spine-a`,
         { colorScheme, viewport: { width: 1280, height: 850 } } );
      await soon( async () => {
         if ( await page.locator( '.panel canvas' ).count() < 6 )
            throw new Error( 'curves are missing' );
      } );
      await page.evaluate( () => new Promise( ( done ) => { requestAnimationFrame( () => requestAnimationFrame( done ) ); } ) );
      await page.screenshot( { path: join( to, `drain-${colorScheme}.png` ) } );
      await context.close();
      if ( wrong.length )
         throw new Error( wrong.join( '\n' ) );
   }
} finally {
   await browser.close();
   await agent.stop();
}
