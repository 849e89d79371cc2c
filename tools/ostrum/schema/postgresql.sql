-- Rows of trace data files in PostgreSQL. Times are in ns, absolute ones since 1970 (UTC).
--
--   psql -f postgresql.sql
--   ostrum export --tsv TRACE_DIRECTORY | psql -c "copy trace_rows_new from stdin" -c "select trace_rows_take()"
--
-- Loading a file again changes nothing: rows are known by (host, file, file_offset).

create table if not exists trace_rows (
    host text not null,
    file text not null,              -- absolute path, without an ending for compression
    file_offset bigint not null,
    period_offset bigint not null,
    parent_offset bigint,
    level integer not null,          -- 0: a period, 1: an outermost path
    bucket integer not null,         -- 0: the path itself; 1, 2, ...: its duration buckets
    path_key bigint not null,
    parent_key bigint not null,      -- 0: an outermost path
    pid bigint not null,
    tid numeric(20) not null,        -- 0: a context named by a key
    period_from_ns bigint not null,
    flushed_ns bigint,               -- of a period
    opcode integer not null,
    name text not null,
    flags integer not null,
    source_file text not null,
    source_line integer not null,
    program text not null,
    obj_type text not null,
    db bigint not null,
    calls bigint not null,
    errors bigint not null,
    records bigint not null,
    total_ns bigint not null,
    min_ns bigint not null,          -- 0: no call without error
    max_ns bigint not null,
    bucket_from_ns bigint not null,
    bucket_to_ns bigint not null,    -- 0: no upper bound
    cached_calls bigint not null,
    cached_ns bigint not null,
    user_cpu_ns bigint not null,
    system_cpu_ns bigint not null,
    primary key (host, file, file_offset)
);

-- Where COPY writes to, for COPY has no rule for rows that are there already.
create unlogged table if not exists trace_rows_new (like trace_rows);

-- Takes the new rows that are not there yet; gives their number.
create or replace function trace_rows_take() returns bigint language plpgsql as $$
declare
    taken bigint;
begin
    insert into trace_rows select * from trace_rows_new on conflict do nothing;
    get diagnostics taken = row_count;
    truncate trace_rows_new;
    return taken;
end $$;

create or replace view trace_report as
with sums as (
    select path_key, min(parent_key) as parent_key, min(level) as level, min(opcode) as opcode, min(name) as name,
           min(flags) as flags, min(source_file) as source_file, min(source_line) as source_line,
           min(program) as program, min(obj_type) as obj_type, min(db) as db,
           sum(calls) as calls, sum(errors) as errors, sum(records) as records, sum(total_ns) as total_ns,
           coalesce(min(nullif(min_ns, 0)), 0) as min_ns, max(max_ns) as max_ns, sum(user_cpu_ns) as user_cpu_ns,
           sum(system_cpu_ns) as system_cpu_ns, sum(cached_calls) as cached_calls, sum(cached_ns) as cached_ns
    from trace_rows where level > 0 and bucket = 0 group by path_key
), callees as (
    select parent_key as path_key, sum(total_ns) as total_ns from sums group by parent_key
)
select path_key, parent_key, level, opcode, name, flags, source_file, source_line, program, obj_type, db,
       calls, errors, records, sums.total_ns as total_ns,
       greatest(0, sums.total_ns - coalesce(callees.total_ns, 0)) as self_ns,
       min_ns, case when calls > 0 then div(sums.total_ns, calls) else 0 end as average_ns, max_ns,
       user_cpu_ns, system_cpu_ns, cached_calls, cached_ns
from sums left join callees using (path_key);

create or replace view trace_flat as
select opcode, name, sum(calls) as calls, sum(errors) as errors, sum(records) as records, sum(self_ns) as self_ns,
       max(max_ns) as max_ns
from trace_report group by opcode, name;

create or replace view trace_buckets as
select path_key, bucket_from_ns, bucket_to_ns, sum(calls) as calls, sum(errors) as errors, sum(total_ns) as total_ns
from trace_rows where bucket > 0 group by path_key, bucket_from_ns, bucket_to_ns;
