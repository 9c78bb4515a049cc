// Bundles the page: `node build.js [FOLDER]` writes what the agent serves, into dist if no folder is named.

import { build } from 'esbuild';
import { copyFile, mkdir } from 'node:fs/promises';
import { dirname, join } from 'node:path';
import { fileURLToPath } from 'node:url';

const here = dirname( fileURLToPath( import.meta.url ) );
const to = process.argv[ 2 ] ?? join( here, 'dist' );

await mkdir( to, { recursive: true } );
await build( {
   absWorkingDir: here,
   entryPoints: { page: 'src/main.js' },
   outdir: to,
   bundle: true,
   minify: true,
   format: 'esm',
   target: [ 'es2021' ],
   charset: 'utf8',
   legalComments: 'none',
   banner: { js: '// Licences: /licences.txt' },
   logLevel: 'warning',
} );
for ( const name of [ 'index.html', 'icon.svg' ] )
   await copyFile( join( here, 'src', name ), join( to, name ) );
await copyFile( join( here, 'node_modules/uplot/LICENSE' ), join( to, 'licences.txt' ) );
