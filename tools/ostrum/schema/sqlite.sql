-- Rows of trace data files, as "ostrum export --sqlite FILE" loads them. Times are in ns, absolute ones since
-- 1970 (UTC).

create table if not exists trace_files (
    id integer primary key,
    host text not null,
    file text not null,            -- absolute path, without an ending for compression
    head_bytes integer not null,   -- so many first bytes of the file ...
    head_hash integer not null,    -- ... and their hash: what tells it from another file of the same name
    unique (host, file)
);

create table if not exists trace_paths (
    path_key integer primary key,
    parent_key integer not null,   -- 0: an outermost path
    level integer not null,        -- 1: an outermost path
    opcode integer not null,
    name text not null,
    flags integer not null,
    source_file text not null,
    source_line integer not null,
    program text not null,
    obj_type text not null,
    db integer not null
);

create table if not exists trace_periods (
    file_id integer not null references trace_files (id),
    file_offset integer not null,
    pid integer not null,
    tid integer not null,          -- 0: a context named by a key
    period_from_ns integer not null,
    flushed_ns integer not null,
    primary key (file_id, file_offset)
) without rowid;

create table if not exists trace_rows (
    file_id integer not null references trace_files (id),
    file_offset integer not null,
    period_offset integer not null,
    parent_offset integer,
    bucket integer not null,       -- 0: the path itself; 1, 2, ...: its duration buckets
    path_key integer not null references trace_paths (path_key),
    pid integer not null,
    tid integer not null,
    period_from_ns integer not null,
    calls integer not null,
    errors integer not null,
    records integer not null,
    total_ns integer not null,
    min_ns integer not null,       -- 0: no call without error
    max_ns integer not null,
    bucket_from_ns integer not null,
    bucket_to_ns integer not null, -- 0: no upper bound
    cached_calls integer not null,
    cached_ns integer not null,
    user_cpu_ns integer not null,
    system_cpu_ns integer not null,
    primary key (file_id, file_offset)
) without rowid;

create view if not exists trace_report as
with sums as (
    select path_key, sum(calls) as calls, sum(errors) as errors, sum(records) as records, sum(total_ns) as total_ns,
           coalesce(min(nullif(min_ns, 0)), 0) as min_ns, max(max_ns) as max_ns, sum(user_cpu_ns) as user_cpu_ns,
           sum(system_cpu_ns) as system_cpu_ns, sum(cached_calls) as cached_calls, sum(cached_ns) as cached_ns
    from trace_rows where bucket = 0 group by path_key
), callees as (
    select parent_key as path_key, sum(total_ns) as total_ns
    from sums join trace_paths using (path_key) group by parent_key
)
select path_key, parent_key, level, opcode, name, flags, source_file, source_line, program, obj_type, db,
       calls, errors, records, sums.total_ns as total_ns,
       max(0, sums.total_ns - coalesce(callees.total_ns, 0)) as self_ns,
       min_ns, case when calls > 0 then sums.total_ns / calls else 0 end as average_ns, max_ns,
       user_cpu_ns, system_cpu_ns, cached_calls, cached_ns
from sums join trace_paths using (path_key) left join callees using (path_key);

create view if not exists trace_flat as
select opcode, name, sum(calls) as calls, sum(errors) as errors, sum(records) as records, sum(self_ns) as self_ns,
       max(max_ns) as max_ns
from trace_report group by opcode, name;

create view if not exists trace_buckets as
select path_key, bucket_from_ns, bucket_to_ns, sum(calls) as calls, sum(errors) as errors, sum(total_ns) as total_ns
from trace_rows where bucket > 0 group by path_key, bucket_from_ns, bucket_to_ns;

create view if not exists trace_call_paths as
with recursive walk (path_key, path) as (
    select path_key, name from trace_paths where parent_key = 0
    union all
    select child.path_key, walk.path || ' > ' || child.name
    from trace_paths as child join walk on child.parent_key = walk.path_key
)
select path_key, path from walk;
