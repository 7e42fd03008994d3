create trigger r after insert on t begin update u set a = case when 1 then 2 end; end; begin not atomic if a then b; end if; end; # c;
insert into t values ('\', "a;");;