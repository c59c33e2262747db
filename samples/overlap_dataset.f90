! overlap.fld: potential flow through two boxes that overlap, each with a grid of its own.
!
! Grids. The first is the unit cube with N x N x N cells. The second is the box x 0.5 to 1.5,
! y and z 0.25 to 0.75, with (N+1) x (N-1) x (N-1) cells. Nodes and cells are numbered with x
! fastest, then y, then z. All elements are hexahedra of material 1.
!
! Solution, the same formulas in both grids:
!   VEL      u = 1 + 0.5 x, v = -0.25 y, w = -0.25 z
!   PRES     p = 100 - 0.5 (u**2 + v**2 + w**2)
!   TEMP     T = 300 + 20 z                (first grid only)
!   CONC     c = x (1 - z)                 (second grid only, stored without a label)
!
! The region "side" is a wall in the first grid and none in the second.
module overlap_dataset
    use, intrinsic :: iso_fortran_env, only: int32, real64
    use fld_items
    use fld_sections
    use hexahedral_block
    implicit none
    private

    public :: write_overlap

    integer(int32), parameter :: bias = 1
    integer(int32), parameter :: cycle_number = 40
    real(real64), parameter :: time = 0.25_real64

contains

    ! ---- solution ----

    elemental real(real64) function pressure(x, y, z)
        real(real64), intent(in) :: x, y, z

        pressure = 100 - 0.5_real64*((1 + 0.5_real64*x)**2 &
                                     + (0.25_real64*y)**2 + (0.25_real64*z)**2)
    end function pressure

    elemental real(real64) function temperature(z)
        real(real64), intent(in) :: z

        temperature = 300 + 20*z
    end function temperature

    elemental real(real64) function concentration(x, z)
        real(real64), intent(in) :: x, z

        concentration = x*(1 - z)
    end function concentration

    subroutine write_velocity(file, x, y, z)
        type(fld_file), intent(in) :: file
        real(real64), intent(in) :: x(:), y(:), z(:)

        call write_vector(file, 'VEL', 'Velocity', &
                          1 + 0.5_real64*x, -0.25_real64*y, -0.25_real64*z)
    end subroutine write_velocity

    ! ---- grids ----

    subroutine write_block(file, mesh)
        type(fld_file), intent(in) :: file
        type(block_mesh), intent(in) :: mesh
        integer(int32), allocatable :: codes(:), nodes(:), materials(:)

        call block_elements(mesh, codes, nodes)
        allocate (materials(size(codes)), source=1_int32)
        call write_materials(file, materials)
        call write_elements(file, codes, nodes)
    end subroutine write_block

    function first_regions(mesh) result(regions)
        type(block_mesh), intent(in) :: mesh
        type(surface_region), allocatable :: regions(:)
        integer :: side

        allocate (regions(3))
        regions(1) = new_region('inlet', 'INLET(VELOCITY)')
        regions(2) = new_region('interface', 'Overset_Boundary')
        regions(3) = new_region('side', 'Wall_Boundary')
        call add_side(mesh, 1, regions(1))
        call add_side(mesh, 2, regions(2))
        do side = 3, 6
            call add_side(mesh, side, regions(3))
        end do
    end function first_regions

    function second_regions(mesh) result(regions)
        type(block_mesh), intent(in) :: mesh
        type(surface_region), allocatable :: regions(:)

        allocate (regions(4))
        regions(1) = new_region('outlet', 'Outlet_Boundary')
        regions(2) = new_region('side', 'Slip_Boundary')
        regions(3) = new_region('interface', 'Overset_Boundary')
        regions(4) = new_region('plate', 'THERM(PLATE)')
        call add_side(mesh, 2, regions(1))
        call add_side(mesh, 3, regions(2))
        call add_side(mesh, 4, regions(2))
        call add_side(mesh, 6, regions(2))
        call add_side(mesh, 1, regions(3))
        call add_side(mesh, 5, regions(4))
    end function second_regions

    subroutine write_first_grid(file, n)
        type(fld_file), intent(in) :: file
        integer, intent(in) :: n
        type(block_mesh) :: mesh
        type(surface_region), allocatable :: regions(:)
        real(real64), allocatable :: x(:), y(:), z(:)

        mesh = block_mesh([n, n, n], bias)
        x = block_indices(mesh, 1)
        y = block_indices(mesh, 2)
        z = block_indices(mesh, 3)
        regions = first_regions(mesh)
        call begin_grid(file, 0)
        call write_coordinate_system(file, cartesian)
        call write_nodes(file, x, y, z)
        call write_block(file, mesh)
        call write_region_types(file, regions, 32)
        call write_surface_geometry(file, regions, 32)
        call write_scalar(file, 'PRES', 'Pressure', pressure(x, y, z))
        call write_scalar(file, 'TEMP', 'Temperature', temperature(z))
        call write_velocity(file, x, y, z)
    end subroutine write_first_grid

    ! The sections stand in another order than in the first grid.
    subroutine write_second_grid(file, n)
        type(fld_file), intent(in) :: file
        integer, intent(in) :: n
        type(block_mesh) :: mesh
        type(surface_region), allocatable :: regions(:)
        real(real64), allocatable :: x(:), y(:), z(:)

        mesh = block_mesh([n + 1, n - 1, n - 1], bias)
        x = 0.5_real64 + block_indices(mesh, 1)
        y = 0.25_real64 + 0.5_real64*block_indices(mesh, 2)
        z = 0.25_real64 + 0.5_real64*block_indices(mesh, 3)
        regions = second_regions(mesh)
        call begin_grid(file, 1)
        call write_scalar(file, 'CONC', '', concentration(x, z))
        call write_scalar(file, 'PRES', 'Pressure', pressure(x, y, z))
        call write_velocity(file, x, y, z)
        call write_surface_geometry_array(file, regions, 12)
        call write_region_types(file, regions, 12)
        call write_block(file, mesh)
        call write_nodes(file, x, y, z)
        call write_coordinate_system(file, cartesian)
    end subroutine write_second_grid

    ! ---- file ----

    subroutine write_overlap(directory, format, n)
        character(len=*), intent(in) :: directory
        type(fld_format), intent(in) :: format
        integer, intent(in) :: n
        type(fld_file) :: file

        call open_fld(file, directory//'/overlap.fld', format)
        call begin_header(file, bias, cycle_number, time)
        call end_header(file)
        call write_first_grid(file, n)
        call write_second_grid(file, n)
        call end_grids(file)
        call close_fld(file)
    end subroutine write_overlap
end module overlap_dataset
