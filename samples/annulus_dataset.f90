! annulus_0000.fld, annulus_0001.fld, annulus_0003.fld, annulus_0004.fld: flow between two
! cylinders about the z axis, the inner one turning, with an axial pressure gradient and with
! heat conduction. A series of results in a cylindrical system; number 2 was never written. The
! first file carries the grid and its own results, the later ones only results.
!
! Grid. Radius r from 1 to 2 (N cells), angle theta all the way round (4 N cells, nodes at 0,
! 2 pi/(4 N), ...), z from 0 to 1 (3 cells). Nodes and cells are numbered with r fastest, then
! theta, then z. Nodes are stored as r, theta, z. All elements are hexahedra of material 1.
!
! Solution at the time t, with the spin-up factor f = 1 - 0.5 exp(-t):
!   VEL      radial 0, tangential f (-0.5 r + 2/r), axial 0.2 f (1 - r**2 + 3 ln r/ln 2)
!   PRES     f**2 (r**2/8 - 2 ln r - 2/r**2) - 0.8 f z
!   TEMP     300 + 60 f ln r/ln 2
!   HFLX     radial -30 f/(r ln 2), tangential 0, axial 0
! At a fixed f these are exact for unit density and viscosity and a conductivity of 0.5. Vectors
! are stored as radial component, angular rate (the tangential component divided by r), axial
! component. The time is 0.05 times the cycle number, and the cycle number is 10 times the
! number in the file name.
module annulus_dataset
    use, intrinsic :: iso_fortran_env, only: int32, real64
    use fld_items
    use fld_sections
    use hexahedral_block
    implicit none
    private

    public :: write_annulus

    integer(int32), parameter :: bias = 0
    integer, parameter :: file_numbers(4) = [0, 1, 3, 4]
    integer, parameter :: cycles_per_file = 10
    real(real64), parameter :: time_per_cycle = 0.05_real64
    integer, parameter :: name_width = 24, ale_name_length = 16
    integer, parameter :: cells_along_axis = 3

    real(real64), parameter :: pi = acos(-1.0_real64)
    real(real64), parameter :: ln2 = log(2.0_real64)

contains

    ! ---- solution ----

    pure real(real64) function spin_up(time)
        real(real64), intent(in) :: time

        spin_up = 1 - 0.5_real64*exp(-time)
    end function spin_up

    elemental real(real64) function angular_rate(f, r)
        real(real64), intent(in) :: f, r

        angular_rate = f*(-0.5_real64 + 2/r**2)
    end function angular_rate

    elemental real(real64) function axial_velocity(f, r)
        real(real64), intent(in) :: f, r

        axial_velocity = 0.2_real64*f*(1 - r**2 + 3*log(r)/ln2)
    end function axial_velocity

    elemental real(real64) function pressure(f, r, z)
        real(real64), intent(in) :: f, r, z

        pressure = f**2*(r**2/8 - 2*log(r) - 2/r**2) - 0.8_real64*f*z
    end function pressure

    elemental real(real64) function temperature(f, r)
        real(real64), intent(in) :: f, r

        temperature = 300 + 60*f*log(r)/ln2
    end function temperature

    elemental real(real64) function radial_heat_flux(f, r)
        real(real64), intent(in) :: f, r

        radial_heat_flux = -30*f/(r*ln2)
    end function radial_heat_flux

    subroutine write_variables(file, f, r, z)
        type(fld_file), intent(in) :: file
        real(real64), intent(in) :: f, r(:), z(:)
        real(real64), allocatable :: zero(:)

        allocate (zero(size(r)), source=0.0_real64)
        call write_vector(file, 'VEL', 'Velocity', zero, angular_rate(f, r), axial_velocity(f, r))
        call write_scalar(file, 'PRES', 'Pressure', pressure(f, r, z))
        call write_scalar(file, 'TEMP', 'Temperature', temperature(f, r))
        call write_vector(file, 'HFLX', 'Heat Flux', radial_heat_flux(f, r), zero, zero)
    end subroutine write_variables

    ! ---- grid ----

    function annulus_regions(mesh) result(regions)
        type(block_mesh), intent(in) :: mesh
        type(surface_region), allocatable :: regions(:)

        allocate (regions(4))
        regions(1) = new_region('inner_cylinder', 'Solid_Boundary')
        regions(2) = new_region('outer_cylinder', 'THERM(FIXED)')
        regions(3) = new_region('end_low', 'Periodic_Boundary')
        regions(4) = new_region('end_high', 'Periodic_Boundary')
        call add_side(mesh, 1, regions(1))
        call add_side(mesh, 2, regions(2))
        call add_side(mesh, 5, regions(3))
        call add_side(mesh, 6, regions(4))
    end function annulus_regions

    subroutine write_grid(file, mesh, r, theta, z)
        type(fld_file), intent(in) :: file
        type(block_mesh), intent(in) :: mesh
        real(real64), intent(in) :: r(:), theta(:), z(:)
        integer(int32), allocatable :: codes(:), nodes(:), materials(:)
        type(surface_region), allocatable :: regions(:)

        regions = annulus_regions(mesh)
        call block_elements(mesh, codes, nodes)
        allocate (materials(size(codes)), source=1_int32)
        call write_nodes(file, r, theta, z)
        call write_elements(file, codes, nodes)
        call write_materials(file, materials)
        call write_surface_geometry_array(file, regions, name_width)
        call write_region_types(file, regions, own_length)
    end subroutine write_grid

    ! ---- sections that carry neither grid nor results ----

    ! A header keyword that few readers know, with two items.
    subroutine write_comment_keyword(file)
        type(fld_file), intent(in) :: file

        call begin_section(file, 'Comment')
        call put_text(file, 'Flow between rotating cylinders')
        call put_ints(file, [2_int32, 4_int32, 6_int32])
        call end_section(file)
    end subroutine write_comment_keyword

    subroutine write_probe_section(file, time)
        type(fld_file), intent(in) :: file
        real(real64), intent(in) :: time

        call begin_section(file, 'LS_ProbeLocation')
        call put_int(file, 1_int32)
        call put_text(file, 'mid-gap')
        call put_reals(file, [1.5_real64, 0.0_real64, 0.5_real64, time])
        call end_section(file)
    end subroutine write_probe_section

    subroutine write_streamcoc(file)
        type(fld_file), intent(in) :: file

        call begin_section(file, 'LS_STREAMcoc')
        call put_int(file, 0_int32)
        call put_ints(file, [1_int32, 2_int32, 3_int32])
        call end_section(file)
    end subroutine write_streamcoc

    ! The cells at either end of the annulus, once region by region and once in shared arrays.
    subroutine write_volume_regions(file, mesh)
        type(fld_file), intent(in) :: file
        type(block_mesh), intent(in) :: mesh
        integer(int32), allocatable :: low(:), high(:)
        integer :: layer, i

        layer = cell_total(mesh)/mesh%cells(3)
        low = [(bias + i, i=0, layer - 1)]
        high = low + (mesh%cells(3) - 1)*layer

        call begin_section(file, 'LS_VolumeGeometry')
        call put_int(file, 0_int32)
        call put_int(file, 2_int32)
        call put_int(file, own_length)
        call put_text(file, 'cells_low')
        call put_int(file, size(low))
        call put_ints(file, low)
        call put_text(file, 'no_cells')
        call put_int(file, 0_int32)
        call put_ints(file, low(:0))
        call end_section(file)

        call begin_section(file, 'LS_VolumeGeometryArray')
        call put_int(file, 0_int32)
        call put_int(file, 2_int32)
        call put_int(file, name_width)
        call put_text(file, padded('cells_low', name_width)//padded('cells_high', name_width))
        call put_ints(file, [size(low), size(high)])
        call put_ints(file, [low, high])
        call end_section(file)
    end subroutine write_volume_regions

    ! One moving group with one entry of each length: 1, 2, 3 and 8 records of reals.
    subroutine write_ale(file)
        type(fld_file), intent(in) :: file
        real(real64), parameter :: axis(3) = [0.0_real64, 0.0_real64, 1.0_real64]
        integer :: i

        call begin_section(file, 'LS_ALE')
        call put_int(file, 0_int32)
        call put_int(file, ale_name_length)
        call put_int(file, 0_int32)
        call put_int(file, 1_int32)
        call put_int(file, 1_int32)
        call put_text(file, padded('inner_cylinder', ale_name_length))
        call put_int(file, 4_int32)
        call begin_ale_entry('translation', 1_int32)
        call put_reals(file, 0*axis)
        call begin_ale_entry('axis', 2_int32)
        call put_reals(file, 0*axis)
        call put_reals(file, axis)
        call begin_ale_entry('rotation', 3_int32)
        call put_reals(file, 0*axis)
        call put_reals(file, axis)
        call put_real(file, 1.5_real64)
        call begin_ale_entry('corners', 8_int32)
        do i = 0, 7
            call put_reals(file, i*axis)
        end do
        call end_section(file)

    contains

        subroutine begin_ale_entry(name, records)
            character(len=*), intent(in) :: name
            integer(int32), intent(in) :: records

            call put_text(file, padded(name, ale_name_length))
            call put_int(file, records)
        end subroutine begin_ale_entry
    end subroutine write_ale

    ! Spreads the further kinds of section over the files of the series.
    subroutine write_extras(file, mesh, number, time)
        type(fld_file), intent(in) :: file
        type(block_mesh), intent(in) :: mesh
        integer, intent(in) :: number
        real(real64), intent(in) :: time
        real(real64) :: no_nodes(0)

        select case (number)
        case (0)
            call write_streamcoc(file)
            call write_volume_regions(file, mesh)
            call write_ale(file)
            call write_probe_section(file, time)
        case (1)
            call write_nodes(file, no_nodes, no_nodes, no_nodes)
        case (3)
            call write_ale(file)
            call write_probe_section(file, time)
        case default
            call write_streamcoc(file)
        end select
    end subroutine write_extras

    ! ---- files ----

    subroutine write_annulus(directory, format, n)
        character(len=*), intent(in) :: directory
        type(fld_format), intent(in) :: format
        integer, intent(in) :: n
        type(block_mesh) :: mesh
        real(real64), allocatable :: r(:), theta(:), z(:)
        integer :: i

        mesh = block_mesh([n, 4*n, cells_along_axis], bias, closed=.true.)
        r = 1 + block_indices(mesh, 1)
        theta = 2*pi*block_indices(mesh, 2)
        z = block_indices(mesh, 3)
        do i = 1, size(file_numbers)
            call write_step(directory, format, file_numbers(i), mesh, r, theta, z)
        end do
    end subroutine write_annulus

    subroutine write_step(directory, format, number, mesh, r, theta, z)
        character(len=*), intent(in) :: directory
        type(fld_format), intent(in) :: format
        integer, intent(in) :: number
        type(block_mesh), intent(in) :: mesh
        real(real64), intent(in) :: r(:), theta(:), z(:)
        type(fld_file) :: file
        character(len=4) :: digits
        real(real64) :: time

        write (digits, '(i4.4)') number
        time = time_per_cycle*cycles_per_file*number
        call open_fld(file, directory//'/annulus_'//digits//'.fld', format)
        call begin_header(file, bias, cycles_per_file*number, time)
        if (number == 0) call write_comment_keyword(file)
        call end_header(file)
        call begin_grid(file, 0)
        call write_coordinate_system(file, cylindrical)
        if (number == 0) call write_grid(file, mesh, r, theta, z)
        call write_extras(file, mesh, number, time)
        call write_variables(file, spin_up(time), r, z)
        call end_grids(file)
        call close_fld(file)
    end subroutine write_step
end module annulus_dataset
