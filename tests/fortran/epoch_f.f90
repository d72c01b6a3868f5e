! Calendar arithmetic called from Fortran, where every argument goes by pointer.
program epoch_f
  implicit none
  double precision, external :: h2e, now
  integer, external :: mday2doy
  integer :: year, doy, hour, minute, month, day
  double precision :: when, second

  when = h2e(2008, 32, 12, 30, 15.5d0)
  if (when /= 1201869015.5d0) stop 1

  call e2h(when, year, doy, hour, minute, second)
  if (year /= 2008 .or. doy /= 32 .or. hour /= 12 .or. minute /= 30) stop 2
  if (second /= 15.5d0) stop 3

  call doy2mday(61, 2004, month, day)
  if (month /= 3 .or. day /= 1) stop 4
  if (mday2doy(2003, 3, 1) /= 60) stop 5

  if (now() < 1.7d9 .or. now() > 1.0d11) stop 6
end program epoch_f
