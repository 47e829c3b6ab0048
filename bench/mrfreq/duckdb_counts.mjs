// The benchmark's counts by DuckDB over the same case file: the responses per
// member of $q and the cases with at least one, over all cases and per region.
//   node duckdb_counts.mjs CASES.csv
import { DuckDBInstance } from '@duckdb/node-api';

const file = process.argv[2];
const members = Array.from({ length: 10 }, (_, i) => `q${String(i + 1).padStart(2, '0')}`);
const sums = members.map((m) => `sum(CASE WHEN ${m} = 1 THEN 1 ELSE 0 END) AS ${m}`).join(', ');
const anyCounted = members.map((m) => `${m} = 1`).join(' OR ');
const sql = `SELECT region, ${sums}, count(*) FILTER (WHERE ${anyCounted}) AS valid_cases
  FROM read_csv('${file.replace(/'/g, "''")}', header = true)
  GROUP BY GROUPING SETS ((), (region)) ORDER BY region NULLS FIRST`;

const instance = await DuckDBInstance.create(':memory:');
const connection = await instance.connect();
const reader = await connection.runAndReadAll(sql);
for (const row of reader.getRows()) console.log(row.map(String).join(','));
