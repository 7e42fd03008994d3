insert into t (a) values ('it''s', -5, 1.5, f(2)), (1e3, 0x1F, 'a' 'b', 7) on conflict (a) do update set a = 'x' where b in (1, 'y') limit 3
