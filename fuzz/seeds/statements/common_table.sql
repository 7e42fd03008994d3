with w as (select max(a), b from (s.t join u on t.k = u.k) limit 1) select b, w.* from w, (select c from v where d = 1) x order by b;
